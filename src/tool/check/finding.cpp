#include "tool/check/finding.h"

#include <algorithm>

namespace runlet_tool {

std::size_t Report::count(Severity severity) const {
  const auto isOfThat = [=](const Finding& finding) { return finding.rule->severity == severity; };
  auto count = static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), isOfThat));
  for (const auto& [rule, more] : leftOut) {
    if (ruleOf(rule).severity == severity) count += more;
  }
  return count;
}

}  // namespace runlet_tool
