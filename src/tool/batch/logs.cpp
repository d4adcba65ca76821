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

// 0, or the error number of what stands in the way of logs in that folder.
int makeWritable(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) return error.value();
  return faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
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
  const AsTaskUser user(batch.context);
  const int error = user.isTaken() ? makeWritable(batch.logFolder) : errno;
  if (error == 0) return true;
  std::fprintf(stderr, "runlet-job: %s: no logs can be written to %s: %s\n", verb,
               visible(batch.logFolder).c_str(), std::strerror(error));
  return false;
}

int openLog(const Batch& batch, std::int32_t task) {
  const AsTaskUser user(batch.context);
  if (!user.isTaken()) return -1;
  // Not to wait for somebody who reads a pipe of that name: root would wait for any user.
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const int log = open(logPath(batch, task).c_str(), flags, 0666);
  if (log != -1) fcntl(log, F_SETFL, 0);  // the task's writes are to wait as ever
  return log;
}

}  // namespace runlet_tool
