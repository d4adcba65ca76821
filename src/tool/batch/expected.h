// Files that a task must have made when it ends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/batch/batch.h"

namespace runlet_tool {

// What is wrong with a pattern, in which placeholders are as in the arguments of the job; empty if
// it can be filled in for every task of the job.
std::string complaintAboutPattern(const runlet::AdapterContext& context,
                                  const std::string& pattern);

// The first of the files that the patterns give for the task and that does not exist, as a path
// relative to the run folder; empty if all of them exist. The patterns have no complaint.
std::string missingFile(const Batch& batch, std::int32_t task,
                        const std::vector<std::string>& patterns);

}  // namespace runlet_tool
