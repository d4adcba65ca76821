// The report of a batch for programs.
#pragma once

#include <string>

#include "tool/report/overview.h"

namespace runlet_tool {

// One object with a newline at its end, in the form documented in docs/records.md.
std::string reportJson(const Overview& overview);

}  // namespace runlet_tool
