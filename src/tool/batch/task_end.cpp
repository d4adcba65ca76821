#include "tool/batch/task_end.h"

#include <sys/wait.h>

#include <charconv>
#include <cstring>

namespace runlet_tool {
namespace {

struct EndingText {
  std::string_view text;  // what a number, if there is one, follows
  Ending ending;
  bool hasNumber;
};

constexpr EndingText texts[] = {
    {"succeeded", Ending::succeeded, false},     {"failed with exit code ", Ending::failed, true},
    {"killed by signal ", Ending::killed, true}, {"timed out", Ending::timedOut, false},
    {"interrupted", Ending::interrupted, false}, {"not started", Ending::notStarted, false},
};

// False when the row is not for such a `text`. Otherwise reads its number, if it has one.
bool readEnding(const EndingText& row, std::string_view text, int* number) {
  if (!row.hasNumber) return text == row.text;
  if (!text.starts_with(row.text)) return false;
  text.remove_prefix(row.text.size());
  return std::from_chars(text.data(), text.data() + text.size(), *number).ec == std::errc();
}

}  // namespace

TaskEnd endOfStatus(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) return {Ending::killed, WTERMSIG(waitStatus), ""};
  const int code = WEXITSTATUS(waitStatus);
  return code == 0 ? TaskEnd{Ending::succeeded, 0, ""} : TaskEnd{Ending::failed, code, ""};
}

std::string describe(const TaskEnd& end) {
  for (const EndingText& row : texts) {
    if (row.ending != end.ending) continue;
    std::string text(row.text);
    if (row.hasNumber) text += std::to_string(end.number);
    if (end.ending == Ending::killed) text.append(" (").append(strsignal(end.number)).append(")");
    return text;
  }
  return end.word;
}

TaskEnd endOfText(std::string_view text) {
  for (const EndingText& row : texts) {
    int number = 0;
    if (readEnding(row, text, &number)) return {row.ending, number, ""};
  }
  return {Ending::other, 0, std::string(text)};
}

}  // namespace runlet_tool
