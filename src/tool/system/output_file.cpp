#include "tool/system/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tool/system/files.h"
#include "tool/system/output_place.h"

namespace runlet_tool {
namespace {

constexpr mode_t permissionBits = 0777;

std::string textOf(int error) {
  return error == 0 ? "" : std::strerror(error);
}

// The mode of a newly created file.
mode_t newFileMode() {
  const mode_t mask = umask(0);  // the only portable way to read it
  umask(mask);
  return 0666U & ~mask;
}

bool isOwnedAs(const struct stat& wanted, int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && status.st_uid == wanted.st_uid &&
         status.st_gid == wanted.st_gid;
}

// Gives the new file the owner and group of the old one. Only root can give a file away. The mode
// is set afterwards: until then, nobody else may open the file.
std::string keepOwner(int descriptor, const struct stat& old) {
  if (isOwnedAs(old, descriptor)) return {};
  const int error = fchown(descriptor, old.st_uid, old.st_gid) == 0 ? 0 : errno;
  if (isOwnedAs(old, descriptor)) return {};
  return "cannot keep its owner and group: " + textOf(error == 0 ? EPERM : error);
}

// Setting an access control list sets the mode, too. If only the mode were set, its group bits
// would be the mask of a list.
bool keepRights(int descriptor, const OutputPlace& place) {
  if (!place.accessList.empty()) {
    const std::string& list = place.accessList;
    return fsetxattr(descriptor, accessListName, list.data(), list.size(), 0) == 0;
  }
  // A default list of the folder may have given the new file a list that the old one did not have.
  const bool hasNone = !place.old || fremovexattr(descriptor, accessListName) == 0 ||
                       errno == ENODATA || errno == ENOTSUP;
  const mode_t mode = place.old ? place.old->st_mode & permissionBits : newFileMode();
  return hasNone && fchmod(descriptor, mode) == 0;
}

std::string fill(int descriptor, std::string_view text, const OutputPlace& place) {
  const int error = writeAll(descriptor, text);
  if (error != 0) return textOf(error);
  std::string reason = place.old ? keepOwner(descriptor, *place.old) : "";
  if (!reason.empty()) return reason;
  // The new file must be on disk before it replaces the old one.
  return keepRights(descriptor, place) && fsync(descriptor) == 0 ? "" : textOf(errno);
}

std::string replace(const OutputPlace& place, std::string_view text) {
  // An unpredictable name, so that nobody can have taken it.
  std::uint64_t number = 0;
  if (getentropy(&number, sizeof number) != 0) return textOf(errno);
  const std::string temporary = ".runlet-job-" + std::to_string(number);
  const int folder = place.folder.number();
  const int descriptor =
      openat(folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor == -1) return textOf(errno);
  std::string reason = fill(descriptor, text, place);
  if (close(descriptor) != 0 && reason.empty()) reason = textOf(errno);
  const bool isInPlace =
      reason.empty() && renameat(folder, temporary.c_str(), folder, place.name.c_str()) == 0;
  if (!isInPlace && reason.empty()) reason = textOf(errno);
  if (!isInPlace) unlinkat(folder, temporary.c_str(), 0);
  return reason;
}

}  // namespace

std::string writeFile(const std::string& path, std::string_view text) {
  OutputPlace place;
  std::string reason = findOutputPlace(path, &place);
  if (!reason.empty()) return reason;
  return place.stream == -1 ? replace(place, text) : textOf(writeAll(place.stream, text));
}

}  // namespace runlet_tool
