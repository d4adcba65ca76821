// From the end of an element to those of its tasks.
#pragma once

#include <cstdint>
#include <vector>

#include "tool/batch/job_batch.h"
#include "tool/batch/task_end.h"
#include "tool/submit/array_plan.h"

namespace runlet_tool {

// Sets the ends of those tasks of the batch that the element holds, in `*ends`, which goes with
// `batch.tasks`. Where an element of several tasks did not succeed its log tells them apart.
void setEnds(const Batch& batch, const ArrayLayout& layout, std::int32_t element,
             const TaskEnd& end, std::vector<TaskEnd>* ends);

}  // namespace runlet_tool
