// Other programs, run to their end.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

struct ProgramResult {
  int startError = 0;  // the error number for which there was no process; 0 = there was one
  // The error number for which it is not known how the process ended, or not all of its `output`;
  // 0 = both are.
  int answerError = 0;
  int waitStatus = 0;
  std::string output;
  std::string error;  // as far as it can be read
};

// Runs a program, looked for along PATH, and waits until it has ended. `arguments` has its name
// first, `environment` is as in environ; `input` is what it finds on its standard input, a file in
// memory, and so are both outputs. It gets no other descriptor that is opened here. All that is
// needed to learn what it answers is there before it is started.
ProgramResult runSubprocess(const std::vector<std::string>& arguments, std::string_view input,
                            const std::vector<std::string>& environment);

}  // namespace runlet_tool
