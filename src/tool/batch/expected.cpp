#include "tool/batch/expected.h"

#include <sys/stat.h>

#include <stdexcept>

#include "job/fill_in.h"
#include "tool/system/files.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

// False if the pattern cannot be filled in for the task at `index`.
bool fillIn(const runlet::AdapterContext& context, const std::string& pattern, std::int32_t index,
            std::string* path) {
  try {
    return fillInArguments(&context, path, pattern.c_str(), index) && !path->empty();
  } catch (const std::out_of_range&) {  // a parameter that has a name and no value
    return false;
  }
}

}  // namespace

std::string complaintAboutPattern(const runlet::AdapterContext& context,
                                  const std::string& pattern) {
  std::string path;
  for (std::size_t i = 0; i < context.taskList.size(); ++i) {
    if (fillIn(context, pattern, static_cast<std::int32_t>(i), &path)) continue;
    return shortShellWord(pattern) + " cannot be filled in for task " + std::to_string(i + 1);
  }
  return "";
}

std::string missingFile(const Batch& batch, std::int32_t task,
                        const std::vector<std::string>& patterns) {
  for (const std::string& pattern : patterns) {
    std::string path;
    struct stat status {};
    fillIn(batch.context, pattern, task - 1, &path);
    if (stat(fullPath(batch.folder, path).c_str(), &status) != 0) return path;
  }
  return "";
}

}  // namespace runlet_tool
