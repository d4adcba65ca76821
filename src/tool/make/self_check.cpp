#include "tool/make/self_check.h"

#include <cstdint>

#include "exec/start.h"
#include "exec/words.h"
#include "tool/expand/loading.h"
#include "tool/make/word_quoting.h"

namespace runlet_tool {
namespace {

bool give(const std::string& text, Complaint* complaint) {
  complaint->text = text;
  return false;
}

bool sameJob(const runlet::AdapterContext& a, const runlet::AdapterContext& b) {
  return a.workingFolder == b.workingFolder && a.logFolder == b.logFolder &&
         a.outputs == b.outputs && a.taskNameIdx == b.taskNameIdx &&
         a.taskTimeout == b.taskTimeout && a.uid == b.uid && a.gid == b.gid && a.umask == b.umask &&
         a.redirectStderr == b.redirectStderr && a.taskList == b.taskList &&
         a.paramNames == b.paramNames && a.paramValues == b.paramValues;
}

std::vector<std::string> argumentsOf(const std::string& commandLine) {
  std::string line = commandLine;  // which is cut up
  std::vector<std::string> arguments;
  for (const char* word : runlet::splitWords(line.data())) {
    if (word != nullptr) arguments.emplace_back(word);
  }
  return arguments;
}

bool taskArrives(const runlet::AdapterContext& job, const CommandWords& words,
                 std::int32_t taskIndex) {
  runlet::TaskStart start;
  std::vector<std::string> meant;
  return composeStart(job, taskIndex, &start) && words.expand(taskIndex, &meant) &&
         argumentsOf(start.commandLine) == meant;
}

}  // namespace

bool arrivesAsMeant(const std::string& path, const runlet::AdapterContext& meant,
                    const std::vector<std::string>& words, Complaint* complaint) {
  runlet::AdapterContext loaded;
  loaded.jobFile = path;
  const LoadResult result = loadJob(&loaded);
  if (result.loading != Loading::loaded) return give(result.message, complaint);
  if (!sameJob(loaded, meant)) return give("the job would not arrive as it is meant", complaint);
  const CommandWords commandWords(words, meant);
  const auto taskCount = static_cast<std::int32_t>(words.size() > 1 ? loaded.taskList.size() : 0);
  for (std::int32_t task = 0; task < taskCount; ++task) {
    if (taskArrives(loaded, commandWords, task)) continue;
    return give("task " + std::to_string(task + 1) + " would not get the words of the command",
                complaint);
  }
  return true;
}

}  // namespace runlet_tool
