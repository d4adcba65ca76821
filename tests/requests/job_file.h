// The result of loading a job file.
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

// Thrown if loading fails, with the text for standard error.
struct Refused {
  std::string message;
};

// Thrown if an uncaught exception ends the process, with the C++ library's text.
struct Ended {
  std::string message;
};

// What the C++ library writes for an uncaught exception.
std::string terminateText(const std::string& type, const std::string& what);

// The job in a file with the content `text` and the name `name`. Uses `scratchFile` to pass the
// text to the XML library.
LoadedJob loadJob(const std::string& text, const std::string& name, const std::string& scratchFile);

// The message for a file that cannot be loaded, with a reason.
std::string couldNotLoad(const std::string& name, const std::string& reason);

}  // namespace runlet_model
