// How tasks ended that ran without a farm server.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

enum class Ending {
  succeeded,
  failed,       // `number` is its exit code; if that is 0, `word` says what is wrong nevertheless
  killed,       // by the signal `number`
  timedOut,     // ended because it exceeded the time limit
  interrupted,  // ended because the whole run was interrupted
  notStarted,
  other,  // described by `word`, such as Slurm's "node_fail"
};

struct TaskEnd {
  Ending ending = Ending::notStarted;
  int number = 0;
  std::string word;

  bool operator==(const TaskEnd&) const = default;
};

// Whether it is the task that failed: not if it was interrupted or not started.
bool isFailure(Ending ending);

// Whether `word` describes the end.
bool hasWord(const TaskEnd& end);

// From the wait status of a process that exited or was killed by a signal.
TaskEnd endOfStatus(int waitStatus);

// The name of the kind of end in files: "succeeded", "failed", "killed", "timed-out",
// "interrupted", "not-started" or "other".
std::string_view endName(Ending ending);

// The end of that name, with its exit code or signal, or 0 for all others. `word` is for ends that
// have one. No value if there is no such end.
std::optional<TaskEnd> endOfName(std::string_view name, int number, std::string word);

// "succeeded", "failed with exit code 3", "failed: " and the word if that is 0, "killed by signal 9
// (Killed)", "timed out", "interrupted", "not started", or the word. For the exit codes 125 to 127,
// also what they usually mean: "failed with exit code 127 (program not found)".
std::string describe(const TaskEnd& end);

// Whether `id` is valid in these lines: not empty, and only digits, letters, ":" and "_".
bool isEndLinesId(std::string_view id);

// One line "runlet-job-ends ID ENDING NUMBER TASKS" per kind of end, with TASKS as in "3-5,9".
// `ends[i]` is the end of `tasks[i]`, which ascend. The word of Ending::other is not included.
std::string endLines(const std::string& id, const std::vector<std::int32_t>& tasks,
                     const std::vector<TaskEnd>& ends);

// Sets the ends in `*ends`, which is parallel to the ascending `tasks`, from the lines of `text`
// with that id; if several lines name a task, the last one counts. Everything else in `text` is
// ignored, as are tasks not in `tasks` and a last line without a newline. Ending::other gets the
// word "unknown". No other text is copied, so the ends are safe to print.
void readEndLines(std::string_view text, std::string_view id,
                  const std::vector<std::int32_t>& tasks, std::vector<TaskEnd>* ends);

}  // namespace runlet_tool
