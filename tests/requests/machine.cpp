#include "machine.h"

#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "process.h"

namespace runlet_model {
namespace {

constexpr std::size_t longestName = 255;
constexpr std::size_t longestPath = 4095;
constexpr unsigned readRight = 4;
constexpr unsigned executeRight = 1;

std::string join(const std::string& folder, const std::string& name) {
  return folder == "/" ? "/" + name : folder + "/" + name;
}

// The name of the system's chmod in its messages: its path or, on newer systems, its base name.
const std::string& chmodName() {
  static const std::string name = [] {
    runlet_test::ProcessOptions options;
    options.arguments = {"/bin/chmod", "755", ""};
    const std::string error = runlet_test::runProcess(options).error;
    return error.substr(0, error.find(':'));
  }();
  return name;
}

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> parts;
  std::istringstream stream(path);
  for (std::string part; std::getline(stream, part, '/');) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

// Whether a line of the id map, "first inside, first outside, count", includes the id.
bool isMapped(const char* table, std::uint32_t id) {
  std::ifstream stream(table);
  std::uint64_t first = 0;
  std::uint64_t outside = 0;
  std::uint64_t count = 0;
  while (stream >> first >> outside >> count) {
    if (id >= first && id < first + count) return true;
  }
  return false;
}

}  // namespace

Machine::Machine(std::string folder, std::uint32_t owner)
    : folder_(std::move(folder)), owner_(owner) {
  entries_["/"] = {EntryKind::folder, 0755, ""};
  entries_["/tmp"] = {EntryKind::folder, 0777, ""};
  entries_[folder_] = {EntryKind::folder, 0755, ""};
}

void Machine::add(const std::string& path, Entry entry) {
  entries_[path] = std::move(entry);
}

bool Machine::may(const Identity& who, const std::string& path, unsigned right) const {
  const Entry& entry = at(path);
  if (who.uid == 0) {
    return entry.kind == EntryKind::folder || right != executeRight || (entry.mode & 0111) != 0;
  }
  return ((entry.mode >> (who.uid == owner_ ? 6U : 0U)) & right) != 0;
}

bool Machine::mayRead(const Identity& who, const std::string& path) const {
  return may(who, path, readRight);
}

int Machine::step(const Identity& who, const std::string& component, std::string* path) const {
  if (at(*path).kind != EntryKind::folder) return ENOTDIR;
  if (!may(who, *path, executeRight)) return EACCES;
  if (component == ".") return 0;
  if (component.size() > longestName) return ENAMETOOLONG;
  *path = component == ".." ? parentOf(*path) : join(*path, component);
  if (entries_.count(*path) == 1) return 0;
  struct stat ignored {};
  const bool isOurs = path->rfind(folder_ + "/", 0) == 0;
  if (!isOurs && lstat(path->c_str(), &ignored) == 0) throw NotCovered("unknown path " + *path);
  return ENOENT;
}

Place Machine::find(const Identity& who, const std::string& current,
                    const std::string& path) const {
  if (path.empty()) return {ENOENT, ""};
  if (path.size() > longestPath) return {ENAMETOOLONG, ""};
  Place place{0, path[0] == '/' ? "/" : current};
  for (const std::string& component : components(path)) {
    place.error = step(who, component, &place.path);
    if (place.error != 0) return place;
  }
  if (path.back() == '/' && at(place.path).kind != EntryKind::folder) place.error = ENOTDIR;
  return place;
}

Place Machine::enter(const Identity& who, const std::string& current,
                     const std::string& path) const {
  Place place = find(who, current, path);
  if (place.error == 0) place.error = step(who, ".", &place.path);
  return place;
}

Place Machine::executeFile(const Identity& who, const std::string& current,
                           const std::string& path) const {
  Place place = find(who, current, path);
  if (place.error != 0) return place;
  const bool isFolder = at(place.path).kind == EntryKind::folder;
  if (isFolder || !may(who, place.path, executeRight)) place.error = EACCES;
  return place;
}

Place Machine::execute(const Identity& who, const std::string& current,
                       const std::string& word) const {
  if (word.find('/') != std::string::npos) return executeFile(who, current, word);
  if (word.empty()) return {ENOENT, ""};
  if (word.size() > longestName) return {ENAMETOOLONG, ""};
  Place result{ENOENT, ""};
  for (const std::string& folder : searchPath) {
    const Place place = executeFile(who, current, join(folder, word));
    if (place.error == 0) return place;
    if (place.error == EACCES) result.error = EACCES;
  }
  return result;
}

std::string Machine::makeExecutable(const Identity& who, const std::string& current,
                                    const std::string& path) {
  const Place place = find(who, current, path);
  if (place.error != 0) {
    return chmodName() + ": cannot access '" + path + "': " + std::strerror(place.error) + "\n";
  }
  if (place.path.rfind(folder_, 0) != 0) throw NotCovered("chmod outside the folder");
  if (who.uid != 0 && who.uid != owner_) {
    return chmodName() + ": changing permissions of '" + path + "': " + std::strerror(EPERM) + "\n";
  }
  entries_.at(place.path).mode = 0755;
  return "";
}

std::optional<std::uint32_t> userId(const std::string& name, std::string* reason) {
  errno = 0;
  if (const passwd* entry = getpwnam(name.c_str())) return entry->pw_uid;
  *reason = errno == 0 ? "" : std::strerror(errno);
  return std::nullopt;
}

bool isUser(std::uint32_t uid) {
  return isMapped("/proc/self/uid_map", uid);
}

bool isGroup(std::uint32_t gid) {
  return isMapped("/proc/self/gid_map", gid);
}

}  // namespace runlet_model
