// Job files for as long as a process runs.
#pragma once

#include <string>

namespace runlet_bench {

// The path of a job of `tasks` tasks, which is there until the process ends. The same for the same
// number.
std::string jobOf(long tasks);

}  // namespace runlet_bench
