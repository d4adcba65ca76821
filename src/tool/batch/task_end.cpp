#include "tool/batch/task_end.h"

#include <sys/wait.h>

#include <cstring>
#include <string_view>

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

}  // namespace runlet_tool
