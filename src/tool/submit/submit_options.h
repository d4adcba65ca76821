// What the command line says about a submission.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool/batch/job_batch.h"

namespace runlet_tool {

struct SubmitOptions {
  BatchOptions batch;
  std::optional<std::int32_t> throttle;  // how many elements of an array run at a time
  std::int32_t chunk = 1;                // how many tasks are an element
  std::string partition;                 // empty = the engine's choice
  std::vector<std::string> sbatchOptions;
  std::vector<std::string> keptVariables;  // names of those that root's tasks get, too
  std::vector<std::string> failedOf;       // ids of arrays
  bool isDryRun = false;
  bool isWaiting = false;
};

// What is wrong with an option for sbatch; empty if nothing is.
std::string complaintAboutSbatchOption(const std::string& option);

// Likewise with the id of an array.
std::string complaintAboutId(const std::string& id);

}  // namespace runlet_tool
