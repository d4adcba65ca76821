// Starting a program beside this one.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

namespace runlet_tool {

// Starts the program at the path `arguments[0]` in a process group of its own, with `arguments` as
// its argument vector, an empty standard input, both outputs to the descriptor `output` and
// the signal mask `mask`. Yields 0 with the process's id, which is its group's too, in `*process`;
// otherwise the error number, and there is no process.
int spawnProgram(const std::vector<std::string>& arguments, int output, const sigset_t& mask,
                 pid_t* process);

}  // namespace runlet_tool
