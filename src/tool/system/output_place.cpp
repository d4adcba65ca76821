#include "tool/system/output_place.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

constexpr int maxLinks = 40;  // the kernel's limit

// The number that follows `folder` in `path`; -1 if anything else follows.
int numberAfter(std::string_view folder, std::string_view path) {
  if (!path.starts_with(folder)) return -1;
  path.remove_prefix(folder.size());
  int number = -1;
  const auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), number);
  return error == std::errc() && end == path.data() + path.size() ? number : -1;
}

// The descriptor that the path names; -1 for any other path. If these were resolved as paths, a
// file to which standard output is appended would be replaced, and a pipe has no path.
int namedDescriptor(std::string_view path) {
  if (path == "/dev/stdout") return STDOUT_FILENO;
  if (path == "/dev/stderr") return STDERR_FILENO;
  return std::max(numberAfter("/dev/fd/", path), numberAfter("/proc/self/fd/", path));
}

// The state of a path walk, name by name. Each name is looked up in an open folder, so that no
// unchecked link is followed, whatever others rename meanwhile.
struct OpenWalk {
  OwnDescriptor folder;  // reached so far
  std::string rest;      // the names to come
  int links = 0;
  bool endsInLink = false;  // the last name was a link
  bool isOpen = false;      // it passed a folder in which others can exchange entries
};

std::string withoutLeadingSlashes(const std::string& path) {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

// Opens the folder in which the rest of the walk begins.
std::string openStart(OpenWalk* walk) {
  const bool isFull = walk->rest.starts_with('/');
  if (isFull || walk->folder.number() == -1) {
    const int folder = open(isFull ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (folder == -1) return std::strerror(errno);
    walk->folder = OwnDescriptor(folder);
  }
  walk->rest = withoutLeadingSlashes(walk->rest);
  if (walk->rest.empty() || walk->rest.ends_with('/')) walk->rest += '.';
  return {};
}

std::string takeName(std::string* rest) {
  const std::size_t end = std::min(rest->find('/'), rest->size());
  std::string name = rest->substr(0, end);
  *rest = withoutLeadingSlashes(rest->substr(end));
  return name;
}

// Opens the entry of that name, or the link itself, only to inspect it, which has no effect on
// pipes and devices. Returns its descriptor, or -1.
int openEntry(int folder, const std::string& name) {
  constexpr int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  // With O_DIRECTORY first: otherwise an automounted folder would not be mounted.
  const int found = openat(folder, name.c_str(), flags | O_DIRECTORY);
  return found == -1 && errno == ENOTDIR ? openat(folder, name.c_str(), flags) : found;
}

bool isOwnOrRoots(const struct stat& status) {
  return status.st_uid == geteuid() || status.st_uid == 0;
}

// What others can do with entries of the caller or root in a folder: nothing, move them there from
// a folder of their own, or also exchange them.
enum class Others { canDoNothing, canBring, canExchange };

// Members of the folder's group count as others only if the caller is root.
Others othersIn(int folder) {
  const mode_t writable = geteuid() == 0 ? S_IWGRP | S_IWOTH : S_IWOTH;
  struct stat status {};
  if (fstat(folder, &status) != 0 || !isOwnOrRoots(status)) return Others::canExchange;
  if ((status.st_mode & writable) == 0) return Others::canDoNothing;
  return (status.st_mode & S_ISVTX) != 0 ? Others::canBring : Others::canExchange;
}

std::string follow(const OwnDescriptor& link, const struct stat& status, const std::string& name,
                   OpenWalk* walk) {
  if (!isOwnOrRoots(status)) {
    return "the link " + shortShellWord(name) + " belongs to user " +
           std::to_string(status.st_uid) + " and is not followed";
  }
  const bool isSettled = !walk->isOpen && status.st_nlink == 1 &&
                         othersIn(walk->folder.number()) == Others::canDoNothing;
  if (!isSettled) {
    return "the link " + shortShellWord(name) +
           " is in a place that others can write to, and is not followed";
  }
  char target[PATH_MAX];
  const ssize_t length = readlinkat(link.number(), "", target, sizeof target);
  if (length == -1 || ++walk->links > maxLinks) return std::strerror(length == -1 ? errno : ELOOP);
  const std::string start(target, static_cast<std::size_t>(length));
  walk->endsInLink = walk->endsInLink || walk->rest.empty();
  walk->rest = walk->rest.empty() ? start : start + "/" + walk->rest;
  return {};
}

std::string notReplaced(const char* kind) {
  return std::string("not a regular file but ") + kind;
}

// Why an entry of that mode is not replaced; empty if it is.
std::string obstacle(mode_t mode) {
  if (S_ISREG(mode)) return {};
  if (S_ISDIR(mode)) return std::strerror(EISDIR);
  if (S_ISFIFO(mode)) return notReplaced("a pipe");
  return notReplaced(S_ISSOCK(mode) ? "a socket" : "a device");
}

// Ends the walk at a name that was not found, with that error number. Only the last name may be
// new.
std::string endAtMissing(int error, const OpenWalk& walk, const std::string& name,
                         OutputPlace* place) {
  if (error != ENOENT || !walk.rest.empty() || walk.endsInLink) return std::strerror(error);
  place->name = name;
  return {};
}

// Reads the access control list, which stays empty if the file has only its mode. Returns why it
// cannot be read; empty on success.
std::string readAccessList(const OwnDescriptor& file, std::string* list) {
  const std::string path = "/proc/self/fd/" + std::to_string(file.number());
  list->resize(XATTR_SIZE_MAX);
  const ssize_t size = getxattr(path.c_str(), accessListName, list->data(), list->size());
  const int error = size >= 0 || errno == ENODATA || errno == ENOTSUP ? 0 : errno;
  list->resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return error == 0 ? ""
                    : std::string("cannot read its access control list: ") + std::strerror(error);
}

// Ends the walk at an existing entry with that status.
std::string endAt(const OwnDescriptor& file, const struct stat& status, const std::string& name,
                  OutputPlace* place) {
  place->name = name;
  place->old = status;
  std::string reason = obstacle(status.st_mode);
  return reason.empty() ? readAccessList(file, &place->accessList) : reason;
}

// Resolves the next name. The last step sets the name or stream of `*place`.
std::string takeStep(OpenWalk* walk, OutputPlace* place) {
  const std::string name = takeName(&walk->rest);
  OwnDescriptor found(openEntry(walk->folder.number(), name));
  struct stat status {};
  if (found.number() == -1 || fstat(found.number(), &status) != 0) {
    return endAtMissing(errno, *walk, name, place);
  }
  if (S_ISLNK(status.st_mode)) {
    std::string reason = follow(found, status, name, walk);
    if (!reason.empty()) return reason;
    place->stream = namedDescriptor(walk->rest);
    return openStart(walk);
  }
  if (walk->rest.empty()) return endAt(found, status, name, place);
  walk->isOpen = walk->isOpen || othersIn(walk->folder.number()) == Others::canExchange;
  walk->folder = std::move(found);
  return {};
}

}  // namespace

std::string findOutputPlace(const std::string& path, OutputPlace* place) {
  if (path.empty()) return std::strerror(ENOENT);
  if (path.size() >= PATH_MAX) return std::strerror(ENAMETOOLONG);
  place->stream = namedDescriptor(path);
  OpenWalk walk;
  walk.rest = path;
  std::string reason = openStart(&walk);
  while (reason.empty() && place->name.empty() && place->stream == -1) {
    reason = takeStep(&walk, place);
  }
  place->folder = std::move(walk.folder);
  return reason;
}

}  // namespace runlet_tool
