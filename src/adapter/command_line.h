// The options of a request.
#pragma once

#include <cstdint>

#include "adapter/context.h"

namespace runlet {

// Stores the options of `argv` in `context`. Returns 0, or -1 when no opcode was given (or an
// empty one); then "Runlet adapter: No opcode at all.\n" has been written to standard error.
// All other values have been stored in either case.
//
// A repeated option overwrites. A number is read in base 10 without any check and keeps its low
// 32 bits. Unknown options and missing values are reported by getopt alone and otherwise
// ignored, as are arguments that are not options.
//
// Uses getopt's process-wide state as it finds it: call it once, or set `optind` to 0 before.
// `argv` may be reordered, its strings are not changed.
std::int32_t parseArguments(AdapterContext* context, int argc, char* argv[]);

}  // namespace runlet
