// Job files that exist as long as the process.
#pragma once

#include <string>

namespace runlet_bench {

// The path of a job of `tasks` tasks, created on first use and removed when the process ends.
std::string jobOf(long tasks);

}  // namespace runlet_bench
