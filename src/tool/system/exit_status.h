// The exit statuses of runlet-job.
#pragma once

namespace runlet_tool {

inline constexpr int exitFine = 0;
inline constexpr int exitFailing = 1;  // the job would fail, or cannot be made as requested
// A file cannot be read or written, or the command line is invalid.
inline constexpr int exitUnreadable = 2;

// Only from exec, when the task's program was not executed; the values are those of env and similar
// programs.
inline constexpr int exitNoTask = 125;         // the task could not be set up
inline constexpr int exitCannotExecute = 126;  // its program exists, but cannot be executed
inline constexpr int exitNotFound = 127;       // its program does not exist

}  // namespace runlet_tool
