#include "tool/system/access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "tool/system/files.h"

namespace runlet_tool {
namespace {

// What the C library uses if PATH is not set.
constexpr char usualPath[] = "/bin:/usr/bin";

constexpr int mostLinks = 40;  // the kernel's limit

bool isCaller(const Identity& who) {
  return who.uid == geteuid() && who.gid == getegid();
}

bool isInGroup(const Identity& who, gid_t group) {
  return who.gid == group ||
         std::find(who.groups.begin(), who.groups.end(), group) != who.groups.end();
}

// By the permission bits. Root may search every folder, and execute any file with an execute bit.
bool mayExecute(const Identity& who, const struct stat& status) {
  if (who.uid == 0) return S_ISDIR(status.st_mode) || (status.st_mode & 0111U) != 0;
  if (who.uid == status.st_uid) return (status.st_mode & S_IXUSR) != 0;
  if (isInGroup(who, status.st_gid)) return (status.st_mode & S_IXGRP) != 0;
  return (status.st_mode & S_IXOTH) != 0;
}

std::string linkTarget(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), target, sizeof target);
  return {target, length < 0 ? 0 : static_cast<std::size_t>(length)};
}

// The state of a path walk, component by component, as the kernel does it.
struct PathWalk {
  std::string at;    // the folder reached so far
  std::string rest;  // what is left of the path
  int links = 0;     // followed so far

  // Removes and returns the next component.
  std::string next() {
    const std::size_t begin = std::min(rest.find_first_not_of('/'), rest.size());
    const std::size_t end = std::min(rest.find('/', begin), rest.size());
    std::string component = rest.substr(begin, end - begin);
    rest.erase(0, end);
    return component;
  }

  void follow(const std::string& target) {
    rest = target + rest;
    if (target.starts_with('/')) at.assign(1, '/');
    ++links;
  }
};

// Whether every folder on the path may be searched; if so, `*status` is that of its target.
bool mayReach(const Identity& who, PathWalk walk, struct stat* status) {
  if (stat(walk.at.c_str(), status) != 0) return false;
  for (std::string component = walk.next(); !component.empty(); component = walk.next()) {
    if (!S_ISDIR(status->st_mode) || !mayExecute(who, *status)) return false;
    const std::string path = walk.at + "/" + component;
    if (lstat(path.c_str(), status) != 0) return false;
    if (!S_ISLNK(status->st_mode)) {
      walk.at = path;
      continue;
    }
    if (walk.links == mostLinks) return false;
    walk.follow(linkTarget(path));
    if (stat(walk.at.c_str(), status) != 0) return false;
  }
  return true;
}

bool mayExecuteAt(const Identity& who, const std::string& current, const std::string& path,
                  FileMode mode) {
  const std::string full = fullPath(current, path);
  if (isCaller(who) && mode == FileMode::own) {
    return faccessat(AT_FDCWD, full.c_str(), X_OK, AT_EACCESS) == 0;
  }
  struct stat status {};
  const bool isFull = path.starts_with('/');
  if (!mayReach(who, {isFull ? "/" : current, path}, &status)) return false;
  return mode == FileMode::executable || mayExecute(who, status);
}

Access accessOf(const Identity& who, const std::string& current, const std::string& path,
                mode_t kind, FileMode mode) {
  struct stat status {};
  if (stat(fullPath(current, path).c_str(), &status) != 0) {
    return errno == EACCES ? Access::denied : Access::missing;
  }
  if ((status.st_mode & S_IFMT) != kind) return Access::missing;
  return mayExecuteAt(who, current, path, mode) ? Access::granted : Access::denied;
}

}  // namespace

std::vector<gid_t> ownGroups() {
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
  const int count = getgroups(static_cast<int>(groups.size()), groups.data());
  groups.resize(static_cast<std::size_t>(std::max(count, 0)));
  return groups;
}

Access accessToFolder(const Identity& who, const std::string& current, const std::string& path) {
  return accessOf(who, current, path, S_IFDIR, FileMode::own);
}

Access accessToProgram(const Identity& who, const std::string& current, const std::string& path,
                       FileMode mode) {
  return accessOf(who, current, path, S_IFREG, mode);
}

std::string findProgram(const Identity& who, const std::string& current, const std::string& word,
                        Access* found) {
  if (word.find('/') != std::string::npos) {
    *found = accessToProgram(who, current, word);
    return *found == Access::granted ? fullPath(current, word) : "";
  }
  const char* variable = std::getenv("PATH");
  const std::string path = variable == nullptr ? usualPath : variable;
  *found = Access::missing;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find(':', begin), path.size());
    // An empty entry means the current folder.
    std::string candidate = path.substr(begin, end - begin);
    if (!candidate.empty()) candidate += '/';
    candidate += word;
    const Access access = accessToProgram(who, current, candidate);
    if (access != Access::missing) *found = access;
    if (access == Access::granted) return fullPath(current, candidate);
    begin = end + 1;
  }
  return "";
}

}  // namespace runlet_tool
