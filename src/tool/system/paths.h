// Paths of files and folders.
#pragma once

#include <string>

namespace runlet_tool {

// `path` itself where it begins with "/" or is empty, otherwise as seen from `folder`, which may be
// empty for want of one. Links and dots stay.
std::string fullPath(const std::string& folder, const std::string& path);

// The current folder; empty when it has none any more.
std::string currentFolder();

// Where the file of the running program is.
std::string ownPath();

}  // namespace runlet_tool
