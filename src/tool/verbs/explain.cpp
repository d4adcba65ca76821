#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tool/check/rules.h"
#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/verbs.h"

namespace runlet_tool {
namespace {

int listRules() {
  for (const Rule& rule : allRules()) {
    std::printf("%s  %-7s  %s\n", codeOf(rule).c_str(), nameOf(rule.severity), rule.title);
  }
  return exitFine;
}

int explain(const std::vector<std::string>& codes) {
  if (codes.empty()) return listRules();
  int status = exitFine;
  bool isFirst = true;
  for (const std::string& code : codes) {
    const Rule* rule = findRule(code);
    if (rule == nullptr) {
      std::fprintf(stderr, "runlet-job: explain: unknown code: %s\n", visible(code).c_str());
      status = exitUnreadable;
      continue;
    }
    std::printf("%s%s (%s): %s\n\n%s\n", isFirst ? "" : "\n", code.c_str(), nameOf(rule->severity),
                rule->title, rule->explanation);
    isFirst = false;
  }
  return status;
}

}  // namespace

void addExplain(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("explain", "Explain the findings of check");
  const auto codes = std::make_shared<std::vector<std::string>>();
  verb->add_option("code", *codes, "Codes such as RJ060; without a code, list all")
      ->type_name("CODE");
  verb->callback([=] { *action = [=] { return explain(*codes); }; });
}

}  // namespace runlet_tool
