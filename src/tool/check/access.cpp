#include "tool/check/access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>

namespace runlet_tool {
namespace {

// As the C library has it for a process without one.
constexpr char usualPath[] = "/bin:/usr/bin";

std::string fullPath(const std::string& current, const std::string& path) {
  return path.starts_with('/') ? path : current + "/" + path;
}

bool isCaller(const Identity& who) {
  return who.uid == geteuid() && who.gid == getegid();
}

bool isInGroup(const Identity& who, gid_t group) {
  return who.gid == group ||
         std::find(who.groups.begin(), who.groups.end(), group) != who.groups.end();
}

// Of a file or folder by its permission bits. Root may search every folder, and execute what
// anybody may.
bool mayExecute(const Identity& who, const struct stat& status) {
  if (who.uid == 0) return S_ISDIR(status.st_mode) || (status.st_mode & 0111U) != 0;
  if (who.uid == status.st_uid) return (status.st_mode & S_IXUSR) != 0;
  if (isInGroup(who, status.st_gid)) return (status.st_mode & S_IXGRP) != 0;
  return (status.st_mode & S_IXOTH) != 0;
}

// Every folder on the way to the real `path`, and that itself.
bool mayReach(const Identity& who, const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  if (real == nullptr) return false;
  const std::string all = real.get();
  for (std::size_t slash = 0; slash != std::string::npos; slash = all.find('/', slash + 1)) {
    struct stat status {};
    const std::string folder = slash == 0 ? "/" : all.substr(0, slash);
    if (stat(folder.c_str(), &status) != 0 || !mayExecute(who, status)) return false;
  }
  struct stat status {};
  return stat(all.c_str(), &status) == 0 && mayExecute(who, status);
}

Access accessOf(const Identity& who, const std::string& path, mode_t kind) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return errno == EACCES ? Access::denied : Access::missing;
  }
  if ((status.st_mode & S_IFMT) != kind) return Access::missing;
  const bool may = isCaller(who) ? faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0
                                 : mayReach(who, path);
  return may ? Access::granted : Access::denied;
}

}  // namespace

Access enterFolder(const Identity& who, const std::string& current, const std::string& path) {
  return accessOf(who, fullPath(current, path), S_IFDIR);
}

Access executeFile(const Identity& who, const std::string& current, const std::string& path) {
  return accessOf(who, fullPath(current, path), S_IFREG);
}

std::string findProgram(const Identity& who, const std::string& current, const std::string& word,
                        Access* found) {
  if (word.find('/') != std::string::npos) {
    *found = executeFile(who, current, word);
    return *found == Access::granted ? fullPath(current, word) : "";
  }
  const char* variable = std::getenv("PATH");
  const std::string path = variable == nullptr ? usualPath : variable;
  *found = Access::missing;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find(':', begin), path.size());
    // An empty entry is the current folder.
    std::string candidate = fullPath(current, path.substr(begin, end - begin));
    candidate.append("/").append(word);
    const Access access = executeFile(who, current, candidate);
    if (access != Access::missing) *found = access;
    if (access == Access::granted) return candidate;
    begin = end + 1;
  }
  return "";
}

}  // namespace runlet_tool
