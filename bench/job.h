// The jobs to measure.
#pragma once

#include <string>

namespace runlet_bench {

// Writes a job file of `tasks` tasks to `path`: each has a range of frames as its name and as
// a field, and runs /bin/true in /tmp as the user and group of this process.
void writeJob(const std::string& path, long tasks);

}  // namespace runlet_bench
