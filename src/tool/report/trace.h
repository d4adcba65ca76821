// The attempts of a batch as a trace that viewers of such files show on a time line.
#pragma once

#include <string>

#include "tool/report/overview.h"

namespace runlet_tool {

// A trace in the Chrome trace event format, in JSON: an event for each attempt, with its slot as
// the thread, and one for each session that resumed the batch. Times are in microseconds since the
// batch began. Texts that cannot be shown have escapes, as from `visible`.
std::string traceJson(const Overview& overview);

}  // namespace runlet_tool
