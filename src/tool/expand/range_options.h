// Which tasks a verb is asked for.
#pragma once

#include <cstdint>
#include <optional>

#include "adapter/context.h"
#include "tool/verb.h"

namespace runlet_tool {

struct RangeOptions {
  std::optional<std::int32_t> first;
  std::optional<std::int32_t> count;

  bool isGiven() const {
    return first || count;
  }
};

// Adds -s and -n to `verb`.
void addRangeOptions(CLI::App* verb, RangeOptions* options);

// Without a range, asks for all tasks; -s alone is one task, as in a request; -n alone counts from
// the first. What is given means what it means to the adapter.
void setRange(const RangeOptions& options, runlet::AdapterContext* context);

}  // namespace runlet_tool
