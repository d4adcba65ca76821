#include "tool/batch/expected.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "job/fill_in.h"
#include "tool/batch/task_user.h"
#include "tool/job/preview.h"
#include "tool/system/files.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

// False if the pattern cannot be filled in for the task at `index`.
bool fillIn(const runlet::AdapterContext& context, const std::string& pattern, std::int32_t index,
            std::string* path) {
  std::vector<runlet::PlaceholderUse> uses;
  try {
    if (!fillInArguments(&context, path, pattern.c_str(), index, &uses)) return false;
  } catch (const std::out_of_range&) {  // a parameter that has a name and no value
    return false;
  }
  const std::int32_t fieldCount = fieldCountOf(context.taskList[static_cast<std::size_t>(index)]);
  return !path->empty() && std::none_of(uses.begin(), uses.end(), [&](const auto& use) {
    return isUndefined(use, context, fieldCount);
  });
}

// How many of the files exist before the first that does not.
std::size_t countFound(const std::string& folder, const std::vector<std::string>& paths) {
  const auto missing = std::find_if(paths.begin(), paths.end(), [&](const std::string& path) {
    struct stat status {};
    return stat(fullPath(folder, path).c_str(), &status) != 0;
  });
  return static_cast<std::size_t>(missing - paths.begin());
}

// A number as the position in an empty file, since only a descriptor gets from one process to the
// other. Returns -1 with the reason in errno if there can be no file.
int asPosition(std::size_t number) {
  const int file = memfd_create("number", MFD_CLOEXEC);
  if (file != -1) lseek(file, static_cast<off_t>(number), SEEK_SET);
  return file;
}

std::size_t numberOf(int file) {
  return static_cast<std::size_t>(lseek(file, 0, SEEK_CUR));
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

std::string complaintAboutFiles(const Batch& batch, std::int32_t task,
                                const std::vector<std::string>& patterns) {
  if (patterns.empty()) return "";
  std::vector<std::string> paths(patterns.size());
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    fillIn(batch.context, patterns[i], task - 1, &paths[i]);
  }
  const OwnDescriptor file(
      doAsTaskUser(batch.context, [&] { return asPosition(countFound(batch.folder, paths)); }));
  if (file.number() == -1) {
    return "could not look for " + paths[0] + " (" + std::strerror(errno) + ")";
  }
  const std::size_t found = numberOf(file.number());
  return found == paths.size() ? "" : "no file " + paths[found] + " at its end";
}

}  // namespace runlet_tool
