// The state of a run, in a single record.
#pragma once

#include <cstdint>
#include <string>

#include "job/string_list.h"

namespace runlet {

inline constexpr std::int32_t notGiven = -1;  // in `uid` and `gid`

// Everything known about a request: the command-line values first, then those of the job file.
// `main` creates the only record of the process on its stack and passes it by pointer; the record
// is never copied. It owns all its strings and lists.
//
// The defaults are part of the contract with the farm server and other code relies on them:
// `firstTask` 0 with `taskCount` 1 selects no task, `taskTimeout` 0 makes every positive
// `elapsedMs` a time-out, and -1 in `uid` or `gid` means "not given".
struct AdapterContext {
  std::string jobFile;           // -j: path of the job parameter file; empty = none given
  std::string appPath;           // -a: only its folder part counts; empty = not given
  std::string opcode;            // -o: the request; never empty once the parse has succeeded
  std::string logPath;           // -l: accepted and kept, read by nothing
  std::int32_t firstTask = 0;    // -s: 1-based number of the first task of the range
  std::int32_t taskCount = 1;    // -n: number of tasks in the range
  std::int32_t elapsedMs = 0;    // -e: time the task has run so far, in milliseconds
  std::string userName;          // -u: user to look up when `uid` is -1
  std::string dataPath;          // -d: accepted and kept, read by nothing
  std::string arguments;         // template of the command followed by its argument line
  std::string workingFolder;     // folder to run in; empty = the folder of `jobFile`
  std::string logFolder;         // kept for the job's author, read by nothing
  std::string outputs;           // kept for the job's author, read by nothing
  std::int32_t taskNameIdx = 0;  // kept for the job's author, read by nothing
  std::int32_t taskTimeout = 0;  // time limit of a task, in minutes
  std::int32_t uid = notGiven;   // user id to run as; -1 = look `userName` up
  std::int32_t gid = notGiven;   // group id to run as; -1 = not given, and then no task can start
  std::int32_t umask = 0;        // file-creation mask, as a plain number (18 is octal 022)
  bool redirectStderr = true;    // send the task's standard error to its standard output
  StringList taskList;           // one entry per task: its fields, separated by TAB
  StringList paramNames;         // names of the job parameters; only their number is ever used
  StringList paramValues;        // values of the job parameters, paired with names by position
};

}  // namespace runlet
