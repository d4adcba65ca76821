// Checking the composed command line of a task.
#pragma once

#include <cstdint>

#include "tool/check/inspection.h"
#include "tool/job/preview.h"

namespace runlet_tool {

// Adds findings about the line and its words for task `number`.
void inspectWords(const Preview& preview, std::int32_t number, Inspection* inspection);

}  // namespace runlet_tool
