// The text of a job file.
#pragma once

#include <string>

#include "adapter/context.h"

namespace runlet_tool {

// The job file whose load fills the job fields and lists of a context as those of `job` are, but
// for the `arguments`, which become `argumentTemplate`. They hold only what a job file can carry:
// see xmlObstacle, taskObstacle and escapeAlone. There is an element for every number, and one for
// every text that is not empty.
std::string jobText(const runlet::AdapterContext& job, const std::string& argumentTemplate);

}  // namespace runlet_tool
