// The summary of how the tasks of a batch ended.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/record/ends.h"

namespace runlet_tool {

// What the summary says beyond the ends of tasks.
struct SummaryOptions {
  bool isQuiet = false;         // leaves out tasks that succeeded
  std::string stopReason = {};  // why no more tasks were started; empty if nothing did
};

// Writes to `out` a line with the command of each task of the batch that was started: first those
// that did not succeed, each followed by the path of its log, then the others. Then come a line
// with the stop reason, if there is one, and a line with the totals, which has the numbers of all
// tasks that did not succeed. `ends[i]` is the end of `batch.tasks[i]`.
//
// Returns the exit status: exitFine if all tasks succeeded, otherwise exitFailing.
int writeSummary(const Batch& batch, const std::vector<TaskEnd>& ends,
                 const SummaryOptions& options, std::FILE* out);

// exitFine if all tasks succeeded, otherwise exitFailing.
int statusOf(const std::vector<TaskEnd>& ends);

}  // namespace runlet_tool
