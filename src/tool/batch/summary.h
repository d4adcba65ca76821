// How the tasks of a batch have ended, all in all.
#pragma once

#include <cstdio>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/batch/ends.h"

namespace runlet_tool {

// Writes to `out` a line for every task of the batch with its command, with the path of its log
// behind it where it has been started and has not succeeded, and a line for all of them. `ends[i]`
// is the end of `batch.tasks[i]`. Yields the exit status: exitFine when all have succeeded, else
// exitFailing.
int writeSummary(const Batch& batch, const std::vector<TaskEnd>& ends, std::FILE* out);

}  // namespace runlet_tool
