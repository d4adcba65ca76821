// Tasks that failed in arrays submitted earlier.
#pragma once

#include <string>
#include <vector>

#include "tool/batch/batch.h"

namespace runlet_tool {

// Keeps only those tasks of the batch that ended in the arrays without success; if a task is in
// several arrays, the latest counts. Tasks that have not ended yet are named on standard error, and
// so is the case that no task is left.
//
// Returns exitFine, or after a message the status to exit with: Slurm does not know enough, or an
// array belongs to another job.
int keepFailedTasks(const std::vector<std::string>& numbers, Batch* batch);

}  // namespace runlet_tool
