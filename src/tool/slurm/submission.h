// Submitting a batch to Slurm, all of it or nothing.
#pragma once

#include "tool/batch/batch.h"
#include "tool/slurm/sbatch.h"

namespace runlet_tool {

// Submits the tasks of the batch as one or several arrays and writes the array ids to standard
// output, one per line. With --wait, also writes to standard error how the tasks ended. With
// --dry-run, only writes the commands for a shell.
//
// Returns the exit status. If an array is refused, or a stop signal arrives before all are
// submitted, the arrays submitted so far are cancelled; a message names those that cannot be.
int submitBatch(const Batch& batch, const SubmitOptions& options);

}  // namespace runlet_tool
