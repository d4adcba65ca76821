#include "tool/expand/range_options.h"

#include <CLI/CLI.hpp>
#include <limits>

#include "tool/text/decimal.h"

namespace runlet_tool {

void addRangeOptions(CLI::App* verb, RangeOptions* options) {
  verb->add_option("-s", options->first, "Number of the first task; 1 unless given")
      ->transform(inDecimal)
      ->type_name("N");
  verb->add_option("-n", options->count, "Number of tasks; 1 if -s is given, else all")
      ->transform(inDecimal)
      ->type_name("N");
}

void setRange(const RangeOptions& options, runlet::AdapterContext* context) {
  context->firstTask = options.first.value_or(1);
  const std::int32_t all = std::numeric_limits<std::int32_t>::max();
  context->taskCount = options.count.value_or(options.first.has_value() ? 1 : all);
}

}  // namespace runlet_tool
