#include "tool/batch/logs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tool/batch/task_user.h"
#include "tool/system/paths.h"
#include "tool/text/format.h"
#include "tool/text/visible.h"

namespace runlet_tool {
namespace {

// A descriptor of that folder, in which there can be logs then; -1 with the reason in errno.
int makeWritable(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  errno = error.value();
  if (error || faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) return -1;
  return open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

int openWithoutWaiting(const std::string& path) {
  // Not to wait for somebody who reads a pipe of that name: root would wait for any user.
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const int log = open(path.c_str(), flags, 0666);
  if (log != -1) fcntl(log, F_SETFL, 0);  // the task's writes are to wait as ever
  return log;
}

}  // namespace

int logDigits(const Batch& batch) {
  return static_cast<int>(std::to_string(batch.context.taskList.size()).size());
}

std::string logPath(const Batch& batch, std::int32_t task) {
  const std::string file =
      batch.name + withoutLineEnd("-%0*d.log", logDigits(batch), static_cast<int>(task));
  return fullPath(batch.logFolder, file);
}

bool makeLogFolder(const Batch& batch, const char* verb) {
  const int folder = doAsTaskUser(batch.context, [&] { return makeWritable(batch.logFolder); });
  if (folder != -1) return close(folder) == 0;
  std::fprintf(stderr, "runlet-job: %s: no logs can be written to %s: %s\n", verb,
               visible(batch.logFolder).c_str(), std::strerror(errno));
  return false;
}

int openLog(const Batch& batch, std::int32_t task) {
  return doAsTaskUser(batch.context, [&] { return openWithoutWaiting(logPath(batch, task)); });
}

}  // namespace runlet_tool
