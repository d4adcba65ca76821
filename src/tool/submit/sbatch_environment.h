// What sbatch is started with besides its command: tasks of the array get that from it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "adapter/context.h"

namespace runlet_tool {

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

}  // namespace runlet_tool
