#include "tool/record/ends.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "tool/system/exit_status.h"
#include "tool/text/fields.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

struct EndingText {
  std::string_view text;  // followed by the number, if there is one
  Ending ending;
  bool hasNumber;
};

constexpr EndingText endingTexts[] = {
    {"succeeded", Ending::succeeded, false},     {"failed with exit code ", Ending::failed, true},
    {"killed by signal ", Ending::killed, true}, {"timed out", Ending::timedOut, false},
    {"interrupted", Ending::interrupted, false}, {"not started", Ending::notStarted, false},
};

constexpr std::string_view label = "runlet-job-ends";

struct EndName {
  std::string_view name;
  Ending ending;
  int lowest;  // allowed number
  int highest;
};

// What the statuses of exec mean, and those of shells and similar programs.
const char* meaningOf(int code) {
  switch (code) {
    case exitNoTask:
      return " (task not set up)";
    case exitCannotExecute:
      return " (program not executable)";
    case exitNotFound:
      return " (program not found)";
    default:
      return "";
  }
}

// In the order of Ending.
constexpr EndName endNames[] = {
    {"succeeded", Ending::succeeded, 0, 0},
    {"failed", Ending::failed, 0, 255},
    {"killed", Ending::killed, 1, NSIG - 1},
    {"timed-out", Ending::timedOut, 0, 0},
    {"interrupted", Ending::interrupted, 0, 0},
    {"not-started", Ending::notStarted, 0, 0},
    {"other", Ending::other, 0, 0},
};

// The tasks by kind of end and number.
using Kinds = std::map<std::pair<Ending, int>, TaskNumbers>;

std::string lineOf(const std::string& id, const Kinds::value_type& kind) {
  const auto& [ending, number] = kind.first;
  std::string line(label);
  line.append(" ").append(id).append(" ");
  line.append(endName(ending)).append(" ");
  return line.append(std::to_string(number)).append(" ") + kind.second.text(",") + "\n";
}

// Stops at text that is not a range, or is not above the preceding ranges.
void setRanges(std::string_view ranges, const TaskEnd& end, const std::vector<std::int32_t>& tasks,
               std::vector<TaskEnd>* ends) {
  auto task = tasks.begin();
  std::int32_t before = 0;
  for (const std::string_view part : split(',', ranges)) {
    const std::optional<NumberRange> range = parseRange(part);
    if (!range || range->first <= before) return;
    task = std::lower_bound(task, tasks.end(), range->first);
    for (; task != tasks.end() && *task <= range->last; ++task) {
      (*ends)[static_cast<std::size_t>(task - tasks.begin())] = end;
    }
    before = range->last;
  }
}

}  // namespace

bool isFailure(Ending ending) {
  return ending != Ending::succeeded && ending != Ending::interrupted &&
         ending != Ending::notStarted;
}

bool hasWord(const TaskEnd& end) {
  return end.ending == Ending::other || (end.ending == Ending::failed && end.number == 0);
}

TaskEnd endOfStatus(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) return {Ending::killed, WTERMSIG(waitStatus), ""};
  const int code = WEXITSTATUS(waitStatus);
  return code == 0 ? TaskEnd{Ending::succeeded, 0, ""} : TaskEnd{Ending::failed, code, ""};
}

std::string_view endName(Ending ending) {
  return endNames[static_cast<std::size_t>(ending)].name;
}

std::optional<TaskEnd> endOfName(std::string_view name, int number, std::string word) {
  for (const EndName& row : endNames) {
    if (row.name != name || number < row.lowest || number > row.highest) continue;
    const TaskEnd end{row.ending, number, ""};
    return hasWord(end) ? TaskEnd{row.ending, number, std::move(word)} : end;
  }
  return std::nullopt;
}

std::string describe(const TaskEnd& end) {
  if (hasWord(end)) return (end.ending == Ending::failed ? "failed: " : "") + end.word;
  const EndingText& row =
      *std::find_if(std::begin(endingTexts), std::end(endingTexts),
                    [&](const EndingText& candidate) { return candidate.ending == end.ending; });
  std::string text(row.text);
  if (row.hasNumber) text += std::to_string(end.number);
  if (end.ending == Ending::failed) text += meaningOf(end.number);
  if (end.ending == Ending::killed) text.append(" (").append(strsignal(end.number)).append(")");
  return text;
}

bool isEndLinesId(std::string_view id) {
  constexpr std::string_view fit =
      "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ:_";
  return !id.empty() && id.find_first_not_of(fit) == std::string_view::npos;
}

std::string endLines(const std::string& id, const std::vector<std::int32_t>& tasks,
                     const std::vector<TaskEnd>& ends) {
  Kinds kinds;
  for (std::size_t i = 0; i < ends.size(); ++i) {
    kinds[{ends[i].ending, ends[i].number}].add(tasks[i]);
  }
  std::string text;
  for (const Kinds::value_type& kind : kinds) text += lineOf(id, kind);
  return text;
}

void readEndLines(std::string_view text, std::string_view id,
                  const std::vector<std::int32_t>& tasks, std::vector<TaskEnd>* ends) {
  // In an incomplete last line, a task number may be cut to another one.
  text = text.substr(0, text.rfind('\n') + 1);
  for (const std::string_view line : split('\n', text)) {
    const std::vector<std::string_view> words = split(' ', line);
    if (words.size() != 5 || words[0] != label || words[1] != id) continue;
    const std::optional number = parseNumber<int>(words[3]);
    if (!number) continue;
    const std::optional<TaskEnd> end = endOfName(words[2], *number, "unknown");
    const bool hasCode = words[2] != endName(Ending::failed) || *number != 0;
    if (end && hasCode) setRanges(words[4], *end, tasks, ends);
  }
}

}  // namespace runlet_tool
