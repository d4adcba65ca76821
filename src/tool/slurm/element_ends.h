// How the tasks of an array element ended.
#pragma once

#include <string>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/record/ends.h"
#include "tool/slurm/answers.h"
#include "tool/slurm/arrays.h"

namespace runlet_tool {

// Sets the ends of the element's tasks in `*ends`, which is parallel to `batch.tasks`. `end` is
// what Slurm reports for the element, and applies to all its tasks; but if an element of several
// tasks ran and failed, the ends of its tasks are read from its log.
//
// The tasks themselves could have written to that log. It is used only if it names at least one of
// these tasks as not succeeded. At most its last 64 KiB are read, with the rights of the tasks'
// user, and nothing if it is not a regular file.
void setEnds(const Batch& batch, const ArrayLayout& layout, const ElementId& element,
             const TaskEnd& end, std::vector<TaskEnd>* ends);

// The id of the element in the lines of that log, which the array's script also passes to `run`.
std::string endLinesId(const Batch& batch, const ElementId& element);

}  // namespace runlet_tool
