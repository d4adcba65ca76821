// The composed command line of a task.
#pragma once

#include <cstdint>

#include "tool/check/inspection.h"
#include "tool/job/preview.h"

namespace runlet_tool {

// Finds what is wrong with the line and its words, for the task of that number.
void inspectWords(const Preview& preview, std::int32_t number, Inspection* inspection);

}  // namespace runlet_tool
