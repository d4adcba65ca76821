#include "tool/slurm/element_ends.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tool/batch/task_user.h"
#include "tool/system/files.h"

namespace runlet_tool {
namespace {

// Enough for the lines about the tasks of any element, unless almost all of many thousand tasks end
// differently from their neighbours.
constexpr off_t mostOfLog = 65536;

// The whole lines among the last bytes of the file.
std::string lastLines(int file, off_t size) {
  std::string text(static_cast<std::size_t>(std::min(size, mostOfLog)), '\0');
  const off_t begin = size - static_cast<off_t>(text.size());
  std::size_t length = 0;
  // Stops early if the file has shrunk meanwhile.
  for (ssize_t count = 1; length < text.size() && count > 0;) {
    count = pread(file, &text[length], text.size() - length, begin + static_cast<off_t>(length));
    length += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  text.resize(length);
  return begin == 0 ? text : text.erase(0, std::min(text.find('\n'), text.size()));
}

// Opens the file. Opening a pipe or a device could have side effects or block, and a link could
// lead to a file of another user. A file exchanged in between is opened but not read.
int openLogFile(const std::string& path) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return -1;
  return open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

// Reads with the rights of the tasks' user, since root may have no access, as on NFS. Empty if
// there is no such file.
std::string readAsTaskUser(const Batch& batch, const std::string& path) {
  const int file = doAsTaskUser(batch.context, [&] { return openLogFile(path); });
  if (file == -1) return "";
  struct stat status = {};
  const bool isRegular = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  std::string text = isRegular ? lastLines(file, status.st_size) : "";
  close(file);
  return text;
}

// Whether the element has run and so truncated its log. One that was cancelled or lost may not have
// run, and the log may be from another array.
bool hasBegunLog(const TaskEnd& end) {
  return end.ending == Ending::failed || end.ending == Ending::killed ||
         end.ending == Ending::timedOut;
}

bool isSuccess(const TaskEnd& end) {
  return end.ending == Ending::succeeded;
}

// `tasks` are those of the element. A log in which every task succeeded does not explain why the
// element failed, so it is ignored.
void readChunkLog(const Batch& batch, const std::string& path, const ElementId& element,
                  const std::vector<std::int32_t>& tasks, std::vector<TaskEnd>* ends) {
  std::vector<TaskEnd> reported = *ends;
  readEndLines(readAsTaskUser(batch, path), endLinesId(batch, element), tasks, &reported);
  if (!std::all_of(reported.begin(), reported.end(), isSuccess)) *ends = reported;
}

}  // namespace

void setEnds(const Batch& batch, const ArrayLayout& layout, const ElementId& element,
             const TaskEnd& end, std::vector<TaskEnd>* ends) {
  const std::vector<std::int32_t>& tasks = batch.tasks;
  const TaskSpan span = tasksOf(layout, element.second);
  const auto first = std::lower_bound(tasks.begin(), tasks.end(), span.first);
  const auto last = std::upper_bound(first, tasks.end(), span.last);
  std::vector<TaskEnd> ofChunk(static_cast<std::size_t>(last - first), end);
  if (layout.chunk > 1 && hasBegunLog(end)) {
    const std::string name =
        chunkLogName(batch.name, layout, element.second, batch.context.taskList.size());
    readChunkLog(batch, fullPath(batch.logFolder, name), element, {first, last}, &ofChunk);
  }
  std::copy(ofChunk.begin(), ofChunk.end(), ends->begin() + (first - tasks.begin()));
}

std::string endLinesId(const Batch& batch, const ElementId& element) {
  return jobHash(batch.context.jobFile) + ":" + element.first + "_" +
         std::to_string(element.second);
}

}  // namespace runlet_tool
