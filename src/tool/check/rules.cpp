#include "tool/check/rules.h"

#include <algorithm>
#include <cstdio>

namespace runlet_tool {

const Rule& ruleOf(RuleId id) {
  const std::span<const Rule> rules = allRules();
  return *std::lower_bound(rules.begin(), rules.end(), id,
                           [](const Rule& rule, RuleId wanted) { return rule.id < wanted; });
}

bool isOfDanger(RuleId id) {
  return id == RuleId::hiddenRoot || id == RuleId::shellInChmod;
}

const Rule* findRule(std::string_view code) {
  for (const Rule& rule : allRules()) {
    if (codeOf(rule) == code) return &rule;
  }
  return nullptr;
}

std::string codeOf(const Rule& rule) {
  char code[8];
  std::snprintf(code, sizeof code, "RJ%03d", static_cast<int>(rule.id) % 1000);
  return code;
}

const char* nameOf(Severity severity) {
  constexpr const char* names[] = {"error", "warning", "note"};
  return names[static_cast<std::size_t>(severity)];
}

}  // namespace runlet_tool
