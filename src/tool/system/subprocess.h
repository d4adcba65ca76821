// Running other programs to completion.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

struct ProgramResult {
  int startError = 0;  // error number if there was no process; 0 = there was one
  // The error number if the wait failed or `output` is incomplete; 0 = neither.
  int answerError = 0;
  int waitStatus = 0;
  std::string output;
  std::string error;  // standard error, as much of it as could be read
};

// Runs a program, searched along PATH, and waits until it has ended. `arguments` begins with its
// name, `environment` is as in environ, and `input` becomes its standard input. All three streams
// are files in memory, created before the program is started, so that its output cannot be lost for
// lack of resources. It inherits no other descriptor opened here.
ProgramResult runSubprocess(const std::vector<std::string>& arguments, std::string_view input,
                            const std::vector<std::string>& environment);

}  // namespace runlet_tool
