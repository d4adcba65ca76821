// The range of tasks that a verb works on.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "adapter/context.h"

namespace runlet_tool {

struct RangeOptions {
  std::optional<std::int32_t> first;
  std::optional<std::int32_t> count;

  bool isGiven() const {
    return first || count;
  }
};

// Selects all tasks if no range is given; -s alone selects one task, as in a request; -n alone
// counts from the first. Given values mean the same as to the adapter.
inline void setRange(const RangeOptions& options, runlet::AdapterContext* context) {
  context->firstTask = options.first.value_or(1);
  const std::int32_t all = std::numeric_limits<std::int32_t>::max();
  context->taskCount = options.count.value_or(options.first.has_value() ? 1 : all);
}

}  // namespace runlet_tool
