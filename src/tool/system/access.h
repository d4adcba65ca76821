// What a user may do on this machine.
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

// Which permission bits of the file itself count: its own, or those that chmod 755 gives it.
enum class FileMode { own, executable };

// Whether a process of `who` in the folder `current` may change to the folder `path`, or execute
// the file. `missing` also when it is of another kind.
//
// For the caller's own identity the system decides; for any other the permission bits of everything
// on the way do, so that neither rights nor a process are needed. Access control lists are not
// looked at then.
Access accessToFolder(const Identity& who, const std::string& current, const std::string& path);
Access accessToProgram(const Identity& who, const std::string& current, const std::string& path,
                       FileMode mode = FileMode::own);

// The file that a process of `who` would execute for `word`, along PATH if that has no "/"; empty
// when there is none. `*found` is then the best that there is: denied when a file is there.
std::string findProgram(const Identity& who, const std::string& current, const std::string& word,
                        Access* found);

}  // namespace runlet_tool
