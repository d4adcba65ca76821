#include "tool/make/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace runlet_tool {
namespace {

int errorIf(bool failed) {
  return failed ? errno : 0;
}

// The mode of a file that is made new.
mode_t newFileMode() {
  const mode_t mask = umask(0);  // which can be read in no other way
  umask(mask);
  return 0666U & ~mask;
}

// Writes to the new file and closes it.
int fill(int descriptor, std::string_view text, mode_t mode) {
  int error = writeAll(descriptor, text);
  if (error == 0) error = errorIf(fchmod(descriptor, mode) != 0);
  // In the place of the old file, the new one has to be on the disk.
  if (error == 0) error = errorIf(fsync(descriptor) != 0);
  const int closeError = errorIf(close(descriptor) != 0);
  return error == 0 ? closeError : error;
}

int replace(const std::string& path, std::string_view text, mode_t mode) {
  // mkostemp puts a name of its own in place of the last letters
  std::string temporary = path.substr(0, path.rfind('/') + 1) + ".runlet-job-XXXXXX";
  const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);
  if (descriptor == -1) return errno;
  int error = fill(descriptor, text, mode);
  if (error == 0) error = errorIf(std::rename(temporary.c_str(), path.c_str()) != 0);
  if (error != 0) unlink(temporary.c_str());
  return error;
}

int writeInto(const std::string& path, std::string_view text) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  if (descriptor == -1) return errno;
  const int error = writeAll(descriptor, text);
  const int closeError = errorIf(close(descriptor) != 0);
  return error == 0 ? closeError : error;
}

// Where there is nothing to write to, for the reason of that error number.
int writeNew(const std::string& path, std::string_view text, int error) {
  struct stat link {};
  // A link that leads nowhere is not for us to replace.
  if (error != ENOENT || lstat(path.c_str(), &link) == 0) return error;
  return replace(path, text, newFileMode());
}

}  // namespace

int writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

int writeFile(const std::string& path, std::string_view text) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return writeNew(path, text, errno);
  // Renamed over a device, as root, the new file would take its place for everyone. Nor has what is
  // named by a descriptor, as /dev/stdout, a path of its own.
  if (!S_ISREG(status.st_mode)) return writeInto(path, text);
  char target[PATH_MAX];
  if (realpath(path.c_str(), target) == nullptr) return errno;
  return replace(target, text, status.st_mode & 07777U);
}

}  // namespace runlet_tool
