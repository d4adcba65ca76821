// Turning the process into the task's program.
#pragma once

#include <string>

namespace runlet {

// Whether the old standard error stays open in a program whose own is joined to its standard
// output.
enum class OldStderr { stays, closes };

// Executes the program that `commandLine` names, searched along PATH, with the words of the line as
// its argument vector. With `redirectStderr` the program's standard error goes where standard
// output goes, and a duplicate of the old standard error stays open in it, unless `old` says
// otherwise. The program is not executed if the two cannot be joined.
//
// Returns only if the program cannot be executed, with the error number, after restoring the old
// standard error and writing "Runlet adapter: Cannot execute command:'%s':%s\n" to it.
int becomeProgram(const std::string& commandLine, bool redirectStderr,
                  OldStderr old = OldStderr::stays);

}  // namespace runlet
