#include "tool/check/finding.h"

#include <algorithm>

namespace runlet_tool {

std::size_t Report::count(Severity severity) const {
  const auto isOfThat = [=](const Finding& finding) { return finding.rule->severity == severity; };
  return static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), isOfThat));
}

}  // namespace runlet_tool
