// Resolving the path of an output file safely.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "tool/system/files.h"

namespace runlet_tool {

struct OutputPlace {
  int stream = -1;                 // the descriptor that the path names; -1 = it names a file
  OwnDescriptor folder;            // of the file, for openat and similar calls
  std::string name;                // the file's name in that folder, without a slash
  std::optional<struct stat> old;  // the regular file of that name, if there is one
  std::string accessList;          // its access control list as an attribute; empty = none
};

// The extended attribute that holds this list.
inline constexpr char accessListName[] = "system.posix_acl_access";

// Resolves `path`. Opens only folders, and never blocks. /dev/stdout, /dev/stderr, /dev/fd/N and
// /proc/self/fd/N name a descriptor.
//
// Links are followed only if they belong to the caller or root and are in a place that nobody else
// can write to: nobody else may choose which file is written. If the last name is a link, its
// target must exist.
//
// Returns why nothing can be written there; empty on success. `*place` must be new; after a failure
// its content is unspecified.
std::string findOutputPlace(const std::string& path, OutputPlace* place);

}  // namespace runlet_tool
