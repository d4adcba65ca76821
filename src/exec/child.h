// What a process does to become the task's program.
#pragma once

#include <string>

namespace runlet {

// What becomes of the old standard error in a program whose own is joined to its standard output.
enum class OldStderr { stays, closes };

// Becomes the program that `commandLine` names, found along PATH, with the words of the line as
// its argument vector. With `redirectStderr` the program's standard error goes where standard
// output goes, and a duplicate of the old standard error stays open in it, unless `old` says
// otherwise. It is not started where the two cannot be joined.
//
// Returns only when the program cannot be started, with the error number of that, after writing
// "Runlet adapter: Cannot execute command:'%s':%s\n" to the old standard error, which is back in
// its place then.
int becomeProgram(const std::string& commandLine, bool redirectStderr,
                  OldStderr old = OldStderr::stays);

}  // namespace runlet
