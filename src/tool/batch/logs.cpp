#include "tool/batch/logs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>

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

// Opens the log folder, for openat and the like. Returns -1, with a reason in errno, if it is not
// of the batch's kind: see openOwnFolder for `*refusal`.
int openFolder(const Batch& batch, std::string* refusal) {
  if (batch.logFolderKind != LogFolder::shared) {
    return openOwnFolder(batch.logFolder, "it", refusal);
  }
  return open(batch.logFolder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

// The same without the refusal.
int openFolder(const Batch& batch) {
  std::string unused;
  return openFolder(batch, &unused);
}

// Creates the folder if missing. Returns why logs cannot be created in it; empty if they can.
std::string complaintAboutFolder(const Batch& batch) {
  errno = makeFolders(batch.logFolder, 0777 & ~maskFor(batch), batch.logFolderKind);
  if (errno != 0) return std::strerror(errno);
  std::string refusal;
  const OwnDescriptor folder(openFolder(batch, &refusal));
  if (!refusal.empty()) return refusal;
  const bool isWritable =
      folder.number() != -1 && faccessat(folder.number(), ".", W_OK | X_OK, AT_EACCESS) == 0;
  return isWritable ? "" : std::strerror(errno);
}

std::string logName(const Batch& batch, std::int32_t task, std::int32_t attempt) {
  std::string name = batch.name + withoutLineEnd("-%0*d", logDigits(batch), static_cast<int>(task));
  if (attempt > 1) name.append(".").append(std::to_string(attempt));
  return name + ".log";
}

// A log is always a new file: an existing one may belong to another user, be accessible to others,
// or be a link or pipe to somebody's terminal.
int openNew(int folder, const std::string& name, mode_t mode) {
  if (unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT) return -1;
  return openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
}

// Calls `remove`, which is given the log folder's descriptor and is otherwise like unlink, as the
// user that the tasks run as. Returns 0, or the error number.
int removeAsTaskUser(const Batch& batch, const std::function<int(int)>& remove) {
  const OwnDescriptor done(doAsTaskUser(batch.context, [&] {
    // What a descriptor is of means nothing here, but there has to be one.
    OwnDescriptor folder(openFolder(batch));
    return folder.number() != -1 && remove(folder.number()) == 0 ? folder.release() : -1;
  }));
  return done.number() == -1 ? errno : 0;
}

}  // namespace

int logDigits(const Batch& batch) {
  return static_cast<int>(std::to_string(batch.context.taskList.size()).size());
}

std::string logPath(const Batch& batch, std::int32_t task, std::int32_t attempt) {
  return fullPath(batch.logFolder, logName(batch, task, attempt));
}

bool makeLogFolder(const Batch& batch, const char* verb) {
  const OwnDescriptor answer(
      doAsTaskUser(batch.context, [&] { return textInMemory(complaintAboutFolder(batch)); }));
  const int error = errno;
  const std::string complaint =
      answer.number() == -1 ? std::strerror(error) : textOfMemory(answer.number());
  if (complaint.empty()) return true;
  std::fprintf(stderr, "runlet-job: %s: cannot write logs to %s: %s\n", verb,
               visible(batch.logFolder).c_str(), complaint.c_str());
  return false;
}

int openLog(const Batch& batch, std::int32_t task, std::int32_t attempt) {
  return doAsTaskUser(batch.context, [&] {
    const OwnDescriptor folder(openFolder(batch));
    if (folder.number() == -1) return -1;
    return openNew(folder.number(), logName(batch, task, attempt), 0666 & ~maskFor(batch));
  });
}

int removeLog(const Batch& batch, std::int32_t task, std::int32_t attempt) {
  return removeAsTaskUser(batch, [&](int folder) {
    return unlinkat(folder, logName(batch, task, attempt).c_str(), 0);
  });
}

void removeEmptyLogFolder(const Batch& batch) {
  removeAsTaskUser(batch, [&](int) { return rmdir(batch.logFolder.c_str()); });
}

bool isDiskFull(const Batch& batch) {
  const OwnDescriptor notFull(doAsTaskUser(batch.context, [&] {
    OwnDescriptor folder(openFolder(batch));
    struct statvfs disk {};
    constexpr std::uint64_t little = 64 << 10;  // some systems refuse writes before all is used up
    if (fstatvfs(folder.number(), &disk) != 0) return -1;
    const std::uint64_t left = std::uint64_t{disk.f_bavail} * disk.f_frsize;
    errno = ENOSPC;
    return disk.f_blocks > 0 && left < little ? -1 : folder.release();
  }));
  return notFull.number() == -1 && errno == ENOSPC;
}

}  // namespace runlet_tool
