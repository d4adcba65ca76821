// What the engine's programs write, as far as this program wants to know it. Whatever else stands
// there, such as names that users have given, is passed over.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tool/batch/ends.h"

namespace runlet_tool {

// The id of an array. The cluster is empty where the engine has not named one.
struct ArrayId {
  std::string number;
  std::string cluster;

  bool operator==(const ArrayId&) const = default;
};

// An array's number, and that of one of its elements.
using ElementId = std::pair<std::string, std::int32_t>;

// How elements have ended; nothing for one that has not.
using ElementStates = std::map<ElementId, std::optional<TaskEnd>>;

// From `sbatch --parsable`: "123" or "123;cluster".
std::optional<ArrayId> readReply(std::string_view text);

// From `scontrol show config`.
std::optional<std::int64_t> readMaxArraySize(std::string_view text);

// From squeue, the columns id of the array, number of the element, state and wait status: adds the
// elements to `*states`.
void readQueue(std::string_view text, ElementStates* states);

// From sacct, the columns id of the job, state and exit code, with "|" between them: adds those
// elements that are not in `*states` yet.
void readAccounts(std::string_view text, ElementStates* states);

}  // namespace runlet_tool
