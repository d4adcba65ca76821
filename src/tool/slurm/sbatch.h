// What sbatch gets for an array.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/batch/batch.h"
#include "tool/slurm/arrays.h"

namespace runlet_tool {

struct SubmitOptions {
  BatchOptions batch;
  std::optional<std::int32_t> throttle;  // how many elements of an array run at a time
  std::int32_t chunk = 1;                // how many tasks are an element
  std::string partition;                 // empty = the engine's choice
  std::vector<std::string> sbatchOptions;
  std::vector<std::string> keptVariables;  // names of those that root's tasks get, too
  std::vector<std::string> failedOf;       // ids of arrays
  bool isDryRun = false;
  bool isWaiting = false;
};

// What is wrong with an option for sbatch; empty if nothing is.
std::string complaintAboutSbatchOption(const std::string& option);

// Likewise with the id of an array.
std::string complaintAboutId(const std::string& id);

// The variables, each as "NAME=VALUE", in order: this process's own, but for root those of
// userEnvironment for the job's user, with what configures the cluster's programs. None of them has
// sbatch wait, or sets another mask. `context` has been settled, see batch/task_user.h.
std::vector<std::string> sbatchEnvironment(const runlet::AdapterContext& context,
                                           const std::vector<std::string>& keptNames);

// The mask for new files: the job's, and further so that nobody but the job's user can write to the
// logs, which are made under this mask.
mode_t sbatchMask(const runlet::AdapterContext& context);

// While it lives, new files of this process, and of those that it starts, have the mask.
class MaskForNewFiles {
 public:
  explicit MaskForNewFiles(mode_t mask);
  ~MaskForNewFiles();
  MaskForNewFiles(const MaskForNewFiles&) = delete;
  MaskForNewFiles& operator=(const MaskForNewFiles&) = delete;

 private:
  mode_t before_;
};

struct SbatchCommand {
  std::vector<std::string> arguments;    // sbatch itself first
  std::string script;                    // for its standard input
  std::string name;                      // of the array
  std::string comment;                   // on it
  std::vector<std::string> environment;  // each as "NAME=VALUE"
  mode_t mask;                           // for new files
};

// Whether the engine can be told where the logs are to be.
bool canNameLogs(const Batch& batch);

SbatchCommand sbatchCommand(const Batch& batch, const SubmitOptions& options,
                            const ArrayPart& part);

// The same for a shell of bash's kind, with the script as a here-document, in a subshell.
// The environment is in it for root alone: that of anybody else is the caller's. Ends with a line
// end.
std::string shellText(const SbatchCommand& command);

}  // namespace runlet_tool
