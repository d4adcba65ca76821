// What is shown while tasks run.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tool/batch/task_try.h"
#include "tool/text/terminal.h"

namespace runlet_tool {

// How far a run has got.
struct RunCounts {
  std::size_t done = 0;     // tasks that have ended and are not tried again
  std::size_t failed = 0;   // of these, but not those that were interrupted
  std::size_t running = 0;  // processes of tasks
  bool isEnding = false;    // no more tasks are started
};

// Writes to standard error: unless quiet, a line for each try that ends. On a terminal there is a
// bar, and only tasks that have failed for good, not interrupted ones, have a line above it.
class RunDisplay {
 public:
  // `numbers` are those of the tasks in the job, and must outlive the object. `logOf` yields the
  // path of the log of a task, given its position in `numbers`.
  RunDisplay(const std::vector<std::int32_t>& numbers,
             std::function<std::string(std::size_t)> logOf, bool isQuiet);

  bool isOnTerminal() const {
    return bar_.isOnTerminal();
  }

  // Called when a try has ended; `isFinal` unless the task will be tried again. If the disk of its
  // log is full, a line says so, also if quiet.
  void showEnd(std::size_t task, const TaskTry& attempt, bool isFinal, const RunCounts& counts);

  // Called after the first signal, with the tasks that still run, in any order.
  void showInterrupt(int signal, std::chrono::milliseconds grace, std::vector<std::size_t> running);

  // Writes a line that begins with the name of the program and the verb, also if quiet.
  void showMessage(const std::string& text);

  // Called repeatedly, to update the bar.
  void refresh(const RunCounts& counts);

 private:
  std::string details(const RunCounts& counts) const;

  const std::vector<std::int32_t>& numbers_;
  std::function<std::string(std::size_t)> logOf_;
  bool isQuiet_;
  bool hasColour_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  Progress bar_;
};

// "signal 2 (Interrupt)"
std::string signalText(int signal);

}  // namespace runlet_tool
