// How a task that ran without a farm server ended.
#pragma once

#include <string>

namespace runlet_tool {

enum class Ending {
  succeeded,
  failed,       // `number` is its exit code
  killed,       // by the signal `number`
  timedOut,     // ended because it went over the time limit
  interrupted,  // ended because the whole run was
  notStarted,
  other,  // in the engine's own `word`, such as "node_fail"
};

struct TaskEnd {
  Ending ending = Ending::notStarted;
  int number = 0;
  std::string word;

  bool operator==(const TaskEnd&) const = default;
};

// Of a process that exited or was ended by a signal, from its wait status.
TaskEnd endOfStatus(int waitStatus);

// "succeeded", "failed with exit code 3", "killed by signal 9 (Killed)", "timed out",
// "interrupted", "not started", or the word.
std::string describe(const TaskEnd& end);

}  // namespace runlet_tool
