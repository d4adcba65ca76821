// The tasks of a job that are to run without a farm server.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/verb.h"

namespace runlet_tool {

// What the command line says about it.
struct BatchOptions {
  std::string job;
  std::optional<std::int32_t> first;
  std::optional<std::int32_t> count;
  std::string appPath;
};

// Adds JOB, -s, -n and -a to `verb`.
void addBatchOptions(CLI::App* verb, BatchOptions* options);

// A job that was checked and loaded. `context.jobFile` is a full path, and `context.uid` and
// `context.gid` are those that the tasks will have.
struct Batch {
  runlet::AdapterContext context;
  std::vector<std::int32_t> tasks;  // numbers from 1, ascending; at least one
  std::string name;                 // of the job: part of a file name
  std::string folder;               // the run folder, as a full path
  std::string logFolder;            // as a full path
};

// Checks the job as `check` does, loads it and finds out which tasks there are to run. Yields
// exitFine, or what the program is to end with after it has said on standard error why; then
// `*batch` is of no use. Says there as well what is worth knowing though it does not stand in the
// way: warnings of the check, and that the tasks cannot have the job's user or group. `verb` stands
// in front of that.
int prepareBatch(const BatchOptions& options, const char* verb, Batch* batch);

// The arguments of the program that runs one task, or several: this program's own path first.
std::vector<std::string> execArguments(const Batch& batch, std::int32_t task);

}  // namespace runlet_tool
