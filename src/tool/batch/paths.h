// Paths of a job and of this program.
#pragma once

#include <string>

namespace runlet_tool {

// `path` itself where it begins with "/", otherwise as seen from `folder`. Links and dots stay.
std::string fullPath(const std::string& path, const std::string& folder);

// The same, seen from the current folder.
std::string fullPath(const std::string& path);

// "/" + the current folder's path; ends the program with a message if there is none.
std::string currentFolder();

// Where the file of the running program is.
std::string ownPath();

}  // namespace runlet_tool
