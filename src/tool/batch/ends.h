// How tasks that ran without a farm server ended.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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

// Whether lines can carry `id`: it is of digits, letters, ":" and "_", and not empty.
bool isEndLinesId(std::string_view id);

// A line "runlet-job-ends ID ENDING NUMBER TASKS" for every kind of end, where TASKS is as "3-5,9".
// `ends[i]` is the end of `tasks[i]`, which ascend. The word of Ending::other is not carried.
std::string endLines(const std::string& id, const std::vector<std::int32_t>& tasks,
                     const std::vector<TaskEnd>& ends);

// Sets in `*ends`, which goes with the ascending `tasks`, what the lines of `text` with that id say
// about them; where several are about one task, the last. All else in `text` is ignored, and so are
// tasks that are not in `tasks`, and a last line without its line end. Ending::other comes with the
// word "unknown". No other text is taken over, so that the ends are fit to be shown.
void readEndLines(std::string_view text, std::string_view id,
                  const std::vector<std::int32_t>& tasks, std::vector<TaskEnd>* ends);

}  // namespace runlet_tool
