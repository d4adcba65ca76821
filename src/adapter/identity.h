// Who the adapter says it is.
#pragma once

#include <string>

namespace runlet {

// Name and description in the `GetInfo` reply. Before `setIdentity` they hold
// "Command Line Tool" and the empty text; afterwards they are only read.
extern std::string adapterName;
extern std::string adapterDescription;

// Derives both strings from `programPath`, the path by which the process was started (`argv[0]`).
// The standard executable name keeps the generic name; any other base name becomes the name.
void setIdentity(const char* programPath);

}  // namespace runlet
