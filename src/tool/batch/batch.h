// The tasks of a job to run without a farm server.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/job/range.h"

namespace runlet_tool {

// The command-line options that select them.
struct BatchOptions {
  std::string job;
  RangeOptions range;
  std::string appPath;
  std::vector<std::int32_t> tasks = {};  // ascending; empty = as the range says
};

// Which log folder may be used.
enum class LogFolder {
  shared,   // any that the user of the tasks can write to
  created,  // none that exists already
  owned,    // one that exists has to belong to the user of the tasks, and be closed to others
};

// A loaded and checked job.
struct Batch {
  // `jobFile` is a full path; `uid` and `gid` are those the tasks will run with.
  runlet::AdapterContext context;
  std::vector<std::int32_t> tasks;  // numbers from 1, ascending; empty: nothing is left to do
  bool isWhole = true;              // they are all tasks of the job
  std::vector<std::int32_t>
      attempts;  // numbers of the last ones or, recorded, 0; parallel to `tasks`
  std::vector<std::string> expected;  // patterns of the files that tasks must make
  std::string digest;                 // the SHA-256 of the job file, in hexadecimal digits
  std::string name;                   // of the job, usable in a file name
  std::string folder;                 // the run folder, as a full path
  std::string logFolder;              // as a full path
  LogFolder logFolderKind = LogFolder::shared;
};

// Loads the job, checks it as `check` does, and selects the tasks to run. The file is read once:
// what was checked is what runs. A job whose tasks exceed the work limit for its file is refused,
// unless a range is given. `verb` is the name for messages.
//
// Returns exitFine. Otherwise returns the status to exit with, after a message on standard error,
// and `*batch` is unusable. Standard error also gets notes that do not prevent the run: the number
// of warnings, and that the tasks cannot have the job's user or group.
int prepareBatch(const BatchOptions& options, const char* verb, Batch* batch);

// False, after a message on standard error, if the user of the tasks cannot enter the run folder.
bool requireRunFolder(const Batch& batch, const char* verb);

}  // namespace runlet_tool
