// What a user may access on this machine.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace runlet_tool {

struct Identity {
  uid_t uid;
  gid_t gid;
  std::vector<gid_t> groups;  // supplementary ones
};

// The supplementary groups of this process.
std::vector<gid_t> ownGroups();

enum class Access { granted, denied, missing };

// Which mode of the file itself counts: its own, or 755.
enum class FileMode { own, executable };

// Whether a process of `who` in the folder `current` may enter the folder `path`, or execute the
// file `path`. `missing` also if it is of another kind.
//
// For the caller's own identity the system decides. For any other, the permission bits of
// everything on the path decide, which needs no privileges and no process; access control lists are
// ignored.
Access accessToFolder(const Identity& who, const std::string& current, const std::string& path);
Access accessToProgram(const Identity& who, const std::string& current, const std::string& path,
                       FileMode mode = FileMode::own);

// The file that a process of `who` would execute for `word`, searched along PATH if `word` has no
// "/"; empty if there is none. `*found` is then denied if a file exists, else missing.
std::string findProgram(const Identity& who, const std::string& current, const std::string& word,
                        Access* found);

}  // namespace runlet_tool
