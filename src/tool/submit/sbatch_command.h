// What sbatch gets for an array.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tool/submit/array_plan.h"
#include "tool/submit/submit_options.h"

namespace runlet_tool {

struct SbatchCommand {
  std::vector<std::string> arguments;    // sbatch itself first
  std::string script;                    // for its standard input
  std::string name;                      // of the array
  std::string comment;                   // on it
  std::vector<std::string> environment;  // each as "NAME=VALUE"
  mode_t mask;                           // for new files
};

// Whether the engine can be told where the logs are to be.
bool canNameLogs(const Batch& batch);

SbatchCommand sbatchCommand(const Batch& batch, const SubmitOptions& options,
                            const ArrayPart& part);

// The same for a shell of bash's kind, with the script as a here-document, in a subshell.
// The environment is in it for root alone: that of anybody else is the caller's. Ends with a line
// end.
std::string shellText(const SbatchCommand& command);

}  // namespace runlet_tool
