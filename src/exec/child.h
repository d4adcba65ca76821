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
// Returns only when the program cannot be started, with the error number of that, after writing
// "Runlet adapter: Cannot execute command:'%s':%s\n" to the old standard error, which is back in
// its place then.
int becomeProgram(const std::string& commandLine, bool redirectStderr);

// The same in a child of the adapter. When the program cannot be started, exits with -127 (status
// 129), flushing what standard output still holds.
[[noreturn]] void runProgram(const std::string& commandLine, bool redirectStderr);

}  // namespace runlet
