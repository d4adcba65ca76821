// The model of the machine as far as a request depends on it: the files of a test's folder with
// their modes, the users, and what a user may do with the files.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace runlet_model {

// Thrown for anything that the model does not cover, such as programs outside the test's folder.
struct NotCovered : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Identity {
  std::uint32_t uid;
  std::uint32_t gid;
};

// Whether the file is the recorder program; any other file is text, which executes as a shell
// script.
enum class EntryKind { folder, recorder, text };
struct Entry {
  EntryKind kind;
  unsigned mode;
  std::string text;
};

// The target of a path, or the error number of its lookup.
struct Place {
  int error;
  std::string path;  // absolute, without "." and ".."
};

class Machine {
 public:
  // All entries belong to `owner`; group and others have the same rights.
  Machine(std::string folder, std::uint32_t owner);

  void add(const std::string& path, Entry entry);
  const Entry& at(const std::string& path) const {
    return entries_.at(path);
  }
  const std::map<std::string, Entry>& entries() const {
    return entries_;
  }

  // For a process of `who` in the folder `current`.
  Place find(const Identity& who, const std::string& current, const std::string& path) const;
  Place enter(const Identity& who, const std::string& current, const std::string& path) const;
  Place execute(const Identity& who, const std::string& current, const std::string& word) const;
  bool mayRead(const Identity& who, const std::string& path) const;
  // What chmod 755 of `path` writes to standard error.
  std::string makeExecutable(const Identity& who, const std::string& current,
                             const std::string& path);

  // The folders searched for a program name without a slash.
  std::vector<std::string> searchPath;

 private:
  bool may(const Identity& who, const std::string& path, unsigned right) const;
  int step(const Identity& who, const std::string& component, std::string* path) const;
  Place executeFile(const Identity& who, const std::string& current, const std::string& path) const;

  std::string folder_;
  std::uint32_t owner_;
  std::map<std::string, Entry> entries_;
};

// The user's id; without one, `*reason` is the text of the error, empty if there is none.
std::optional<std::uint32_t> userId(const std::string& name, std::string* reason);

// Whether the system can give a process this user (or group) at all.
bool isUser(std::uint32_t uid);
bool isGroup(std::uint32_t gid);

}  // namespace runlet_model
