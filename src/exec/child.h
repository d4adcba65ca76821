// What the child process does between the fork and the task's program.
#pragma once

#include <string>

namespace runlet {

// With the command line and the reason.
inline constexpr char cannotExecuteFormat[] = "Runlet adapter: Cannot execute command:'%s':%s\n";

// Becomes the program that `commandLine` names, found along PATH, with the words of the line as
// its argument vector. With `redirectStderr` the program's standard error goes where standard
// output goes, and a duplicate of the old standard error stays open in it.
//
// Does not return. When the program cannot be started, writes
// "Runlet adapter: Cannot execute command:'%s':%s\n" to the old standard error and exits with
// -127 (status 129), flushing what standard output still holds.
[[noreturn]] void runProgram(const std::string& commandLine, bool redirectStderr);

}  // namespace runlet
