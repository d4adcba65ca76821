// What a job file comes to.
#pragma once

#include <cstdint>
#include <string>

#include "model.h"

namespace runlet_model {

struct LoadedJob {
  std::string arguments;
  std::string workingFolder;
  std::int32_t taskTimeout = 0;
  std::int32_t uid = -1;
  std::int32_t gid = -1;
  std::int32_t umask = 0;
  bool redirectStderr = true;
  Lists lists;
};

// Thrown where the load fails, with what is written to standard error.
struct Refused {
  std::string message;
};

// Thrown where an error that nothing catches ends the process, with what the library writes.
struct Ended {
  std::string message;
};

// What the C++ library writes for an exception that nothing catches.
std::string terminateText(const std::string& type, const std::string& what);

// The job in a file with the content `text`, which goes by the name `name`. Uses `scratchFile` to
// hand the text to the XML library.
LoadedJob loadJob(const std::string& text, const std::string& name, const std::string& scratchFile);

// The message for a file that cannot be loaded for a reason.
std::string couldNotLoad(const std::string& name, const std::string& reason);

}  // namespace runlet_model
