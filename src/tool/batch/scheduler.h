// Running tasks as processes, several at a time.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tool/record/ends.h"
#include "tool/system/signals.h"

namespace runlet_tool {

// The tasks to run, numbered from 0 here.
struct TaskSource {
  std::size_t count;
  // Returns a descriptor for both outputs, which closes on exec and is closed by the scheduler; -1
  // with the reason in errno.
  std::function<int(std::size_t)> openLog;
  // Starts a task with that log, as `Starter::start` does: in a child of this process that leads
  // its own process group.
  std::function<int(std::size_t, int log, pid_t* process)> start;
};

struct SchedulerLimits {
  std::int32_t atATime = 1;                            // at least 1
  std::optional<std::chrono::milliseconds> timeLimit;  // of each task
  std::chrono::milliseconds grace;  // between SIGTERM and SIGKILL for tasks being ended
};

struct RunOutcome {
  std::vector<TaskEnd> ends;  // of every task
  int signal = 0;             // that interrupted the run; 0 = none
};

// Runs the tasks in order until all have ended, with a progress bar on a terminal. A task that
// exceeds the time limit is ended: its group gets SIGTERM, after the grace period SIGKILL, and once
// the task itself has ended, the rest of its group is killed. Background processes of a task that
// ends by itself are left alone.
//
// After SIGINT, SIGTERM, SIGHUP or SIGQUIT no further tasks are started, and running tasks are
// ended; a second signal kills them at once. If a task could not be started, the word of its end
// says why.
//
// If the starter has ended, standard error says so, no further tasks are started, and running tasks
// continue. If waiting for tasks fails, standard error says so, no further tasks are started, and
// running tasks are killed; but if they are no longer children of this process, their ids may
// belong to any process, and they are left running. If an exception ends the run, they are killed.
RunOutcome runTasks(const TaskSource& source, const SchedulerLimits& limits,
                    const HeldSignals& signals);

}  // namespace runlet_tool
