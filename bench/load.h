// Loading a job file, compared with the XML library alone.
#pragma once

#include <string>

namespace runlet_bench {

// All of these end the process if the file cannot be loaded, and free everything.

void loadByAdapter(const std::string& path);

// By the library with its defaults, including destruction.
void loadByLibrary(const std::string& path);

// The same without counting rows and columns.
void loadByLibraryWithoutColumns(const std::string& path);

}  // namespace runlet_bench
