// The exit statuses of runlet-job.
#pragma once

namespace runlet_tool {

inline constexpr int exitFine = 0;
inline constexpr int exitFailing = 1;  // the job would fail, or cannot be made as asked
// A file cannot be read or written, or the command line is wrong.
inline constexpr int exitUnreadable = 2;

// Of exec, where there is no task whose own it could be, as other programs have them that become
// another one.
inline constexpr int exitNoTask = 125;         // the task could not be set up
inline constexpr int exitCannotExecute = 126;  // its program is there, but cannot be executed
inline constexpr int exitNotFound = 127;       // its program is not there

}  // namespace runlet_tool
