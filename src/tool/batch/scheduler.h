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

#include "tool/batch/display.h"
#include "tool/batch/starter.h"
#include "tool/batch/task_try.h"
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
  std::function<int(std::size_t, int log, const Announce& announce, pid_t* process)> start;
  // May be empty. Called before the program of a task may run, with `process` and `beginTime`. If
  // it returns false, with the reason in errno, the program does not run, and no further tasks are
  // started.
  std::function<bool(std::size_t, const TaskTry&)> started = {};
  // May be empty. Called once for each try that has ended or could not be started, unless because
  // the starter has ended, and may change its `end`. If it returns false, with the reason in errno,
  // no further tasks are started.
  std::function<bool(std::size_t, TaskTry*)> ended = {};
};

// When to stop early: after that many tasks have failed, counting only those that are not tried
// again.
struct HaltRule {
  std::size_t failures = 1;
  bool endsRunning = false;  // whether running tasks are ended, too
  std::string option;        // as on the command line
};

struct SchedulerLimits {
  std::int32_t atATime = 1;                            // at least 1
  std::optional<std::chrono::milliseconds> timeLimit;  // of each task
  std::chrono::milliseconds grace;  // between SIGTERM and SIGKILL for tasks being ended
  std::int32_t retries = 0;         // how often a task that did not succeed is tried again
  std::optional<HaltRule> halt = {};
};

struct RunOutcome {
  std::vector<TaskEnd> ends;  // of every task, by its last try
  int signal = 0;             // that interrupted the run; 0 = none
  std::string stopReason;     // why no further tasks were started, for people; empty if they were
};

// Runs the tasks in order until all have ended, and shows that. Those to be tried again come after
// all others, each with a new log. A task that exceeds the time limit is ended: its group gets
// SIGTERM, after the grace period SIGKILL, and once the task itself has ended, the rest of its
// group is killed. If after another grace period it still has not ended, the run goes on without
// it. Background processes of a task that ends by itself are left alone.
//
// When the halt rule applies and something would be left to start or, if it ends running tasks, to
// end, standard error says so, and no further tasks are started; tasks that it ends count as
// interrupted.
//
// After SIGINT, SIGTERM, SIGHUP or SIGQUIT no further tasks are started, and running tasks are
// ended; a second signal kills them at once. If a task could not be started, or its program was not
// allowed to run, the word of its end says why.
//
// If the end of a task cannot be recorded, standard error says so, no further tasks are started,
// and running tasks continue; likewise if `started` does not allow a task to run.
//
// If the starter has ended, standard error says so, no further tasks are started, and running tasks
// continue. If waiting for tasks fails, standard error says so, no further tasks are started, and
// running tasks are killed; but if they are no longer children of this process, their ids may
// belong to any process, and they are left running. If an exception ends the run, they are killed.
RunOutcome runTasks(const TaskSource& source, const SchedulerLimits& limits,
                    const HeldSignals& signals, RunDisplay* display);

}  // namespace runlet_tool
