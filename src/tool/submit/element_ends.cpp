#include "tool/submit/element_ends.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "tool/batch/summary.h"
#include "tool/batch/task_user.h"
#include "tool/system/paths.h"

namespace runlet_tool {
namespace {

// All that can be read of the file.
std::string textOf(int file) {
  std::string text;
  char part[4096];
  for (ssize_t count = 0; (count = read(file, part, sizeof part)) > 0;) {
    text.append(part, static_cast<std::size_t>(count));
  }
  return text;
}

// With the tasks' rights: where others cannot write, root may not be able to read. Empty where
// there is no such file.
std::string readAsTaskUser(const Batch& batch, const std::string& path) {
  // Reading what is no regular file might not end, and opening it might not either.
  const int file = doAsTaskUser(
      batch.context, [&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); });
  if (file == -1) return "";
  struct stat status {};
  std::string text;
  if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) text = textOf(file);
  close(file);
  return text;
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
