// The result of parsing the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace runlet_model {

struct OptionValues {
  std::string opcode;
  std::string jobFile;
  std::string appPath;
  std::string userName;
  std::int32_t firstTask = 0;
  std::int32_t taskCount = 1;
  std::int32_t elapsedMs = 0;
  std::string diagnostics;  // what getopt writes to standard error
};

OptionValues readOptions(const std::vector<std::string>& arguments);

// The name in the reply to GetInfo, from the name that the program was started by.
std::string adapterName(const std::string& startedBy);

}  // namespace runlet_model
