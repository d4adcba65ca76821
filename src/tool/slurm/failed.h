// Tasks that have failed in arrays submitted before.
#pragma once

#include <string>
#include <vector>

#include "tool/batch/batch.h"

namespace runlet_tool {

// Leaves of the tasks of the batch those that have ended in the arrays otherwise than well; where
// a task is in several of them, in the latest. Those that have not ended yet are told on standard
// error, and so is that none is left.
//
// Yields exitFine, or the status to end with after a message: the engine does not know enough, or
// an array is of another job.
int keepFailedTasks(const std::vector<std::string>& numbers, Batch* batch);

}  // namespace runlet_tool
