// The schema of job files, compiled in from share/runlet-job/job.rng, so that the program needs no
// other file.
#pragma once

#include <string_view>

namespace runlet_tool {

extern const std::string_view schemaText;

}  // namespace runlet_tool
