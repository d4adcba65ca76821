#include "tool/submit/element_ends.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tool/batch/summary.h"
#include "tool/batch/task_user.h"
#include "tool/system/paths.h"

namespace runlet_tool {
namespace {

// With the tasks' rights: where others cannot write, root may not be able to read. Empty where
// there is no such file.
std::string readAsTaskUser(const Batch& batch, const std::string& path) {
  const AsTaskUser user(batch.context);
  std::error_code error;
  // Reading what is no regular file might not end.
  if (!user.isTaken() || !std::filesystem::is_regular_file(path, error)) return "";
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// Whether the element has been at work, and then begun its log anew: one that was cancelled or lost
// may not, and what stands in the log is about another array.
bool hasBegunLog(const TaskEnd& end) {
  return end.ending == Ending::failed || end.ending == Ending::killed ||
         end.ending == Ending::timedOut;
}

// A log in which no task has gone wrong does not say what the element has failed of.
void readChunkLog(const Batch& batch, const std::string& path, const Batch& chunk,
                  std::vector<TaskEnd>* ends) {
  std::vector<TaskEnd> told = *ends;
  readSummary(chunk, readAsTaskUser(batch, path), &told);
  const bool isOfFailure = std::any_of(
      told.begin(), told.end(), [](const TaskEnd& end) { return end.ending != Ending::succeeded; });
  if (isOfFailure) *ends = told;
}

}  // namespace

void setEnds(const Batch& batch, const ArrayLayout& layout, std::int32_t element,
             const TaskEnd& end, std::vector<TaskEnd>* ends) {
  const std::vector<std::int32_t>& tasks = batch.tasks;
  const TaskSpan span = tasksOf(layout, element);
  const auto first = std::lower_bound(tasks.begin(), tasks.end(), span.first);
  const auto behind = std::upper_bound(first, tasks.end(), span.last);
  Batch chunk;
  chunk.tasks.assign(first, behind);
  std::vector<TaskEnd> ofChunk(chunk.tasks.size(), end);
  if (layout.chunk > 1 && hasBegunLog(end)) {
    const std::string name =
        chunkLogName(batch.name, layout, element, batch.context.taskList.size());
    readChunkLog(batch, fullPath(batch.logFolder, name), chunk, &ofChunk);
  }
  std::copy(ofChunk.begin(), ofChunk.end(), ends->begin() + (first - tasks.begin()));
}

}  // namespace runlet_tool
