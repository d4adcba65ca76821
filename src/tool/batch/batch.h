// The tasks of a job that are to run without a farm server.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/job/range.h"

namespace runlet_tool {

// What the command line says about it.
struct BatchOptions {
  std::string job;
  RangeOptions range;
  std::string appPath;
};

// A job that was checked and loaded.
struct Batch {
  // `jobFile` is a full path; `uid` and `gid` are those that the tasks will have.
  runlet::AdapterContext context;
  std::vector<std::int32_t> tasks;  // numbers from 1, ascending; at least one
  std::string name;                 // of the job: fit to be part of a file's name
  std::string folder;               // the run folder, as a full path
  std::string logFolder;            // as a full path
};

// Loads the job, checks it as `check` does, and finds out which tasks there are to run. The file is
// read once: what was checked is what runs. A job of which not all tasks can be looked at in
// proportion to its file is refused, unless tasks are named. Yields exitFine, or the
// status to end with after it has said on standard error why; `*batch` is of no use then. What is
// worth knowing though it does not stand in the way is said there too: warnings of the check, and
// that the tasks cannot have the job's user or group. `verb` names the speaker.
int prepareBatch(const BatchOptions& options, const char* verb, Batch* batch);

}  // namespace runlet_tool
