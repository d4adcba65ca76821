// The schema of job files, from share/runlet-job/job.rng: so that the program has it wherever it
// is copied to.
#pragma once

#include <string_view>

namespace runlet_tool {

extern const std::string_view schemaText;

}  // namespace runlet_tool
