// How the tasks of a batch have ended, all in all.
#pragma once

#include <cstdio>
#include <vector>

#include "tool/batch/job_batch.h"
#include "tool/batch/task_end.h"

namespace runlet_tool {

// Writes to `out` a line for every task of the batch with its command, and one for all of them.
// `ends[i]` is the end of `batch.tasks[i]`. Yields the exit status: exitFine when all have
// succeeded, else exitFailing.
int writeSummary(const Batch& batch, const std::vector<TaskEnd>& ends, std::FILE* out);

// Takes the ends out of a summary that `text` holds somewhere, for the tasks of the batch that it
// names; the others stay as they are in `*ends`.
void readSummary(const Batch& batch, const std::string& text, std::vector<TaskEnd>* ends);

}  // namespace runlet_tool
