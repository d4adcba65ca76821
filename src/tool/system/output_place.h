// Where the file that a path names is.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "tool/system/files.h"

namespace runlet_tool {

struct OutputPlace {
  int stream = -1;                 // the descriptor that the path names; -1 = it names a file
  OwnDescriptor folder;            // the folder of the file, for openat and its like
  std::string name;                // the file's name in that folder, without a slash
  std::optional<struct stat> old;  // the regular file of that name, if there is one
  std::string accessList;          // of that file, as the system has it; empty = none
};

// What the system calls that list.
inline constexpr char accessListName[] = "system.posix_acl_access";

// Finds out where the file is that `path` names. Opens nothing but folders, and never waits.
// /dev/stdout, /dev/stderr, /dev/fd/N and /proc/self/fd/N name a descriptor.
//
// Links are followed if they belong to the caller or to root, and are where nobody else can put
// them: nobody else is to choose which file is written. A link in the last place has to lead to
// something.
//
// Yields why nothing can be written there, and empty if something can. `*place` is to be a new one;
// it has no meaning after a failure.
std::string findOutputPlace(const std::string& path, OutputPlace* place);

}  // namespace runlet_tool
