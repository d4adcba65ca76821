// Waiting for arrays to end.
#pragma once

#include <chrono>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/record/ends.h"
#include "tool/slurm/answers.h"
#include "tool/slurm/arrays.h"

namespace runlet_tool {

struct SubmittedArray {
  ArrayId id;
  ArrayPart part;
};

// How long to wait before asking Slurm again, after `count` queries (from 1) of which the last took
// `duration`. Grows with `count`, and is long enough that queries take only a small share of the
// time.
std::chrono::milliseconds pauseAfter(int count, std::chrono::milliseconds duration);

// What to write before a message on standard error that may follow a progress bar.
const char* overBar();

// Waits until all elements have ended, with a progress bar on a terminal, and returns the ends of
// the batch's tasks in order. If Slurm does not answer, waits on, after one message on standard
// error. An element that Slurm repeatedly does not know has ended as "unknown".
std::vector<TaskEnd> awaitTasks(const Batch& batch, const std::vector<SubmittedArray>& arrays);

}  // namespace runlet_tool
