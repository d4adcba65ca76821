// Tasks that run as processes, some at a time.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tool/batch/ends.h"
#include "tool/system/signals.h"

namespace runlet_tool {

// What is to be run, task by task: they are counted from 0 here.
struct TaskSource {
  std::size_t count;
  // A descriptor for both outputs that closes on exec, and that the scheduler closes; -1 with the
  // reason in errno.
  std::function<int(std::size_t)> openLog;
  // Starts a task with that log, as `Starter::start` does: in a child of this process that leads a
  // process group of its own.
  std::function<int(std::size_t, int log, pid_t* process)> start;
};

struct SchedulerLimits {
  std::int32_t atATime = 1;                            // at least 1
  std::optional<std::chrono::milliseconds> timeLimit;  // of each task
  std::chrono::milliseconds grace;  // between SIGTERM and SIGKILL, for tasks that have to end
};

struct RunOutcome {
  std::vector<TaskEnd> ends;  // of every task
  int signal = 0;             // that interrupted the run; 0 if none did
};

// Runs the tasks in order until all have ended, with a bar about that on a terminal. A task that
// goes over the time limit has to end: its group gets SIGTERM, after the grace SIGKILL, and once
// the task itself has ended, what is left of its group is killed. The background processes of a
// task that ends by itself are left alone.
//
// After SIGINT, SIGTERM, SIGHUP or SIGQUIT no further tasks are started, and those that run have to
// end; a second signal kills them at once. A task without a process has a word for its end that
// tells why.
//
// If the starter has ended, standard error says so, no further tasks are started, and those that
// run go on. If the system does not tell how tasks end, standard error says so, no further task is
// started, and running tasks are killed; but if it no longer knows them as children, their ids may
// be anybody's, and they are left running. If an exception ends the run, they are killed.
RunOutcome runTasks(const TaskSource& source, const SchedulerLimits& limits,
                    const HeldSignals& signals);

}  // namespace runlet_tool
