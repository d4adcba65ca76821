// The report of a batch for a terminal.
#pragma once

#include <string>

#include "tool/report/overview.h"

namespace runlet_tool {

// Text of about 60 lines at most, however many tasks there are. Reads the ends of a few logs. All
// of it is safe to print.
std::string reportText(const Overview& overview, bool hasColour);

}  // namespace runlet_tool
