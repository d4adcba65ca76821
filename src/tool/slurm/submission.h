// Submitting a batch to Slurm, whole or not at all.
#pragma once

#include "tool/batch/batch.h"
#include "tool/slurm/sbatch.h"

namespace runlet_tool {

// Submits the tasks of the batch as the options say, as one array or several, and writes their ids
// to standard output, a line each; with --wait also how the tasks have ended, to standard error.
// With
// --dry-run only writes the commands, for a shell.
//
// Yields the exit status. Where an array is refused, or a signal to stop comes before all have been
// submitted, those that there are are cancelled; a message says what cannot be.
int submitBatch(const Batch& batch, const SubmitOptions& options);

}  // namespace runlet_tool
