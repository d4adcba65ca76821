// Loading a job file, and what the XML library alone takes for it.
#pragma once

#include <string>

namespace runlet_bench {

// All of these end the process where the file cannot be loaded, and leave nothing behind.

void loadByAdapter(const std::string& path);

// By the library as it comes, with its destruction.
void loadByLibrary(const std::string& path);

// The same, but that it counts no rows and columns.
void loadByLibraryWithoutColumns(const std::string& path);

}  // namespace runlet_bench
