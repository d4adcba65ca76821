#include "tool/batch/logs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tool/batch/task_user.h"
#include "tool/system/files.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

// The mask for logs and their folders: the job's, but others can never write to them, and their
// owner can do everything.
mode_t maskFor(const Batch& batch) {
  constexpr mode_t neverForOthers = S_IWGRP | S_IWOTH;
  constexpr mode_t alwaysForOwner = S_IRWXU;
  return (static_cast<mode_t>(batch.context.umask) | neverForOthers) & ~alwaysForOwner;
}

// Creates the folder and its parents. Returns 0, or the error number.
int makeFolders(const std::string& folder, mode_t mode, LogFolder kind) {
  for (std::size_t end = 0; end != std::string::npos;) {
    end = folder.find('/', end + 1);
    const bool mayExist = end != std::string::npos || kind != LogFolder::created;
    const bool isThere = mkdir(folder.substr(0, end).c_str(), mode) == 0;
    if (!isThere && !(mayExist && errno == EEXIST)) return errno;
  }
  return 0;
}

// Whether the folder belongs to the calling user and is closed to others, or need not be.
bool isFit(int folder, LogFolder kind) {
  struct stat status {};
  if (kind == LogFolder::shared) return true;
  errno = EPERM;
  return fstat(folder, &status) == 0 && status.st_uid == geteuid() &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Creates the folder if missing. Returns its descriptor if logs can be created in it; else -1 with
// the reason in errno.
int makeWritable(const std::string& folder, mode_t mode, LogFolder kind) {
  errno = makeFolders(folder, mode, kind);
  if (errno != 0) return -1;
  const int links = kind == LogFolder::shared ? 0 : O_NOFOLLOW;
  const int descriptor = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | links);
  if (descriptor == -1) return -1;
  const bool isWritable = faccessat(descriptor, ".", W_OK | X_OK, AT_EACCESS) == 0;
  if (isWritable && isFit(descriptor, kind)) return descriptor;
  const int error = errno;
  close(descriptor);
  errno = error;
  return -1;
}

// A log is always a new file: an existing one may belong to another user, be accessible to others,
// or be a link or pipe to somebody's terminal.
int openNew(const std::string& path, mode_t mode) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return -1;
  return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
}

// As the user that the tasks run as. `remove` is like unlink. Returns 0, or the error number.
int removeAsTaskUser(const Batch& batch, const std::string& path, int (*remove)(const char*)) {
  const int done = doAsTaskUser(batch.context, [&] {
    // What a descriptor is of means nothing here, but there has to be one.
    return remove(path.c_str()) == 0 ? open("/", O_PATH | O_CLOEXEC) : -1;
  });
  if (done == -1) return errno;
  close(done);
  return 0;
}

}  // namespace

int logDigits(const Batch& batch) {
  return static_cast<int>(std::to_string(batch.context.taskList.size()).size());
}

std::string logPath(const Batch& batch, std::int32_t task, std::int32_t attempt) {
  std::string file = batch.name + withoutLineEnd("-%0*d", logDigits(batch), static_cast<int>(task));
  if (attempt > 1) file.append(".").append(std::to_string(attempt));
  return fullPath(batch.logFolder, file + ".log");
}

bool makeLogFolder(const Batch& batch, const char* verb) {
  const int folder = doAsTaskUser(batch.context, [&] {
    return makeWritable(batch.logFolder, 0777 & ~maskFor(batch), batch.logFolderKind);
  });
  if (folder != -1) {
    close(folder);
    return true;
  }
  std::fprintf(stderr, "runlet-job: %s: cannot write logs to %s: %s\n", verb,
               visible(batch.logFolder).c_str(), std::strerror(errno));
  return false;
}

int openLog(const Batch& batch, std::int32_t task, std::int32_t attempt) {
  return doAsTaskUser(batch.context, [&] {
    return openNew(logPath(batch, task, attempt), 0666 & ~maskFor(batch));
  });
}

int removeLog(const Batch& batch, std::int32_t task, std::int32_t attempt) {
  return removeAsTaskUser(batch, logPath(batch, task, attempt), unlink);
}

void removeEmptyLogFolder(const Batch& batch) {
  removeAsTaskUser(batch, batch.logFolder, rmdir);
}

bool isDiskFull(const Batch& batch) {
  const int notFull = doAsTaskUser(batch.context, [&] {
    struct statvfs disk {};
    constexpr std::uint64_t little = 64 << 10;  // some systems refuse writes before all is used up
    const bool isKnown = statvfs(batch.logFolder.c_str(), &disk) == 0 && disk.f_blocks > 0;
    errno = ENOSPC;
    if (isKnown && std::uint64_t{disk.f_bavail} * disk.f_frsize < little) return -1;
    return open("/", O_PATH | O_CLOEXEC);
  });
  const bool isFull = notFull == -1 && errno == ENOSPC;
  if (notFull != -1) close(notFull);
  return isFull;
}

}  // namespace runlet_tool
