// Files that must exist when a task ends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/batch/batch.h"

namespace runlet_tool {

// What is wrong with a pattern, in which placeholders are as in the arguments of the job; empty if
// it can be filled in for every task of the job, with fields and parameters that exist.
std::string complaintAboutPattern(const runlet::AdapterContext& context,
                                  const std::string& pattern);

// Looks for the files that the patterns give for the task, with the rights of the tasks' user and
// group alone: a task must not learn what only root may see. The patterns have no complaint.
//
// Returns "no file PATH at its end" for the first file that does not exist for that user, with its
// path as the pattern gives it, or "could not look for PATH (REASON)" with the first path if that
// fails; empty if all of them exist. A folder counts as a file.
std::string complaintAboutFiles(const Batch& batch, std::int32_t task,
                                const std::vector<std::string>& patterns);

}  // namespace runlet_tool
