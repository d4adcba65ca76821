// Other programs, run to their end.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

struct ProgramResult {
  int startError = 0;  // the error number for which there was no process; 0 = there was one
  int waitStatus = 0;
  std::string output;
  std::string error;
};

// Runs a program, looked for along PATH, and waits until it has ended. `arguments` has its name
// first, `environment` is as in environ; `input` is what it finds on its standard input, a file in
// memory, and so are both outputs. It gets no other descriptor that is opened here.
ProgramResult runSubprocess(const std::vector<std::string>& arguments, std::string_view input,
                            const std::vector<std::string>& environment);

}  // namespace runlet_tool
