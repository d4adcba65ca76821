// Paths of the programs that tests run, and of the project.
#pragma once

#include <string>

namespace runlet_test {

extern const std::string adapterPath;
extern const std::string plainAdapterPath;  // one without sanitizers, for tight limits
extern const std::string toolPath;          // runlet-job
extern const std::string probePath;
extern const std::string recorderPath;
extern const std::string argumentWriterPath;

// Libraries to be loaded before all others.
extern const std::string faultsPath;
extern const std::string spyPath;

// The folder of the project, for files of it that tests read. Not a string object, so that it may
// be used before main.
extern const char* const sourceFolder;

}  // namespace runlet_test
