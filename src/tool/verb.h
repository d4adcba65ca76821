// What the verbs of runlet-job have in common.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace runlet_tool {

// What the command line asks for, to be done once it has been read to its end. Yields the exit
// status of the program.
using Action = std::function<int()>;

inline constexpr int exitFine = 0;
inline constexpr int exitFailing = 1;  // the job would fail, or cannot be made as asked
inline constexpr int exitUnreadable =
    2;  // a file cannot be read or written, or the command line is wrong

}  // namespace runlet_tool
