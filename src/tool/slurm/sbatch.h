// The sbatch command for an array.
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
  std::optional<std::int32_t> throttle;  // most elements of an array to run at a time
  std::int32_t chunk = 1;                // tasks per element
  std::string partition;                 // empty = Slurm's default
  std::vector<std::string> sbatchOptions;
  std::vector<std::string> keptVariables;  // names of root's variables to pass to tasks
  std::vector<std::string> failedOf;       // ids of arrays
  bool isDryRun = false;
  bool isWaiting = false;
};

// What is wrong with an option for sbatch; empty if it is fine.
std::string complaintAboutSbatchOption(const std::string& option);

// What is wrong with the id of an array; empty if it is fine.
std::string complaintAboutId(const std::string& id);

// The environment for sbatch, each variable as "NAME=VALUE", sorted: that of this process, or for
// root that of userEnvironment for the job's user plus what configures Slurm's programs. No
// variable makes sbatch wait or sets another mask. `context` has been settled, see
// batch/task_user.h.
std::vector<std::string> sbatchEnvironment(const runlet::AdapterContext& context,
                                           const std::vector<std::string>& keptNames);

// The mask for new files: the job's, extended so that only the job's user can write to the logs,
// which are created under this mask.
mode_t sbatchMask(const runlet::AdapterContext& context);

// During its lifetime, this process and those it starts create files with the mask.
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
  std::string comment;                   // of the array
  std::vector<std::string> environment;  // each as "NAME=VALUE"
  mode_t mask;                           // for new files
};

// Whether the path of the logs can be passed to sbatch.
bool canNameLogs(const Batch& batch);

SbatchCommand sbatchCommand(const Batch& batch, const SubmitOptions& options,
                            const ArrayPart& part);

// The same for bash, zsh or ksh, with the script as a here-document, in a subshell. Includes the
// environment only for root; everyone else's is the caller's. Ends with a newline.
std::string shellText(const SbatchCommand& command);

}  // namespace runlet_tool
