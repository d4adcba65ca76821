// The summary of how the tasks of a batch ended.
#pragma once

#include <cstdio>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/record/ends.h"

namespace runlet_tool {

// Writes to `out` a line with the command of each task of the batch, followed by the path of its
// log if it was started and did not succeed, and a line with the totals. `ends[i]` is the end of
// `batch.tasks[i]`. Returns the exit status: exitFine if all tasks succeeded, otherwise
// exitFailing.
int writeSummary(const Batch& batch, const std::vector<TaskEnd>& ends, std::FILE* out);

// exitFine if all tasks succeeded, otherwise exitFailing.
int statusOf(const std::vector<TaskEnd>& ends);

}  // namespace runlet_tool
