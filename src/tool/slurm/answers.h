// Parsing the output of Slurm's programs. Everything not needed here, such as names given by users,
// is ignored.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tool/record/ends.h"

namespace runlet_tool {

// The id of an array. The cluster is empty if Slurm has not named one.
struct ArrayId {
  std::string number;
  std::string cluster;

  bool operator==(const ArrayId&) const = default;
};

// The number of an array and the number of one of its elements.
using ElementId = std::pair<std::string, std::int32_t>;

// How elements ended; no value for an element that has not ended.
using ElementStates = std::map<ElementId, std::optional<TaskEnd>>;

// From `sbatch --parsable`: "123" or "123;cluster".
std::optional<ArrayId> readReply(std::string_view text);

// From `scontrol show config`.
std::optional<std::int64_t> readMaxArraySize(std::string_view text);

// From squeue, with the columns array id, element number, state and wait status: adds the elements
// to `*states`.
void readQueue(std::string_view text, ElementStates* states);

// From sacct, with the columns job id, state and exit code, separated by "|": adds the elements
// that are not yet in `*states`.
void readAccounts(std::string_view text, ElementStates* states);

}  // namespace runlet_tool
