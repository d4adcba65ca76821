// Waiting for arrays.
#pragma once

#include <chrono>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/batch/ends.h"
#include "tool/slurm/answers.h"
#include "tool/slurm/arrays.h"

namespace runlet_tool {

struct SubmittedArray {
  ArrayId id;
  ArrayPart part;
};

// How long not to ask the engine again that has been asked `count` times (from 1) and took
// `duration` for the last one: longer from time to time, and so long that asking is only a small
// part of it.
std::chrono::milliseconds pauseAfter(int count, std::chrono::milliseconds duration);

// What has to stand in front of a message on standard error where there may be a bar.
const char* overBar();

// Waits until all elements have ended, with a bar on a terminal, and yields the ends of the batch's
// tasks in their order. An engine that does not answer for a while may go on to; that is said,
// once, on standard error. What the engine does not know any more, for some time, has ended as
// "unknown".
std::vector<TaskEnd> awaitTasks(const Batch& batch, const std::vector<SubmittedArray>& arrays);

}  // namespace runlet_tool
