// From the end of an element to those of its tasks.
#pragma once

#include <string>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/batch/ends.h"
#include "tool/slurm/answers.h"
#include "tool/slurm/arrays.h"

namespace runlet_tool {

// Sets the ends of those tasks of the batch that the element holds, in `*ends`, which goes with
// `batch.tasks`. `end` is what Slurm says of the element, and is the end of all its tasks; but
// of an element of several tasks that ran and did not succeed, its log tells the tasks apart.
//
// The log is one that its tasks could write to. What it says is taken only where it names at least
// one of these tasks as not succeeded; no more than the last 64 KiB of it is read, with the rights
// of the tasks' user, and nothing where it is no regular file.
void setEnds(const Batch& batch, const ArrayLayout& layout, const ElementId& element,
             const TaskEnd& end, std::vector<TaskEnd>* ends);

// The id of the element in the lines of that log: what the script of the array gives to `run`, too.
std::string endLinesId(const Batch& batch, const ElementId& element);

}  // namespace runlet_tool
