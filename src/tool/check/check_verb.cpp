#include "tool/check/check_verb.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tool/check/findings_text.h"
#include "tool/check/inspect.h"
#include "tool/text/output.h"
#include "tool/text/terminal.h"
#include "tool/text/visible.h"

namespace runlet_tool {
namespace {

using Json = nlohmann::ordered_json;

struct CheckOptions {
  std::vector<std::string> jobs;
  std::string appPath;
  std::string userName;
  bool isOfHost = false;
  bool inJson = false;
  bool isStrict = false;
  bool wantsAll = false;
};

int statusOf(const Report& report, bool isStrict) {
  if (!report.isReadable) return exitUnreadable;
  const std::size_t failing =
      report.count(Severity::error) + (isStrict ? report.count(Severity::warning) : 0);
  return failing > 0 ? exitFailing : exitFine;
}

int check(const CheckOptions& options) {
  int status = exitFine;
  Json jobs = Json::array();
  for (const std::string& job : options.jobs) {
    const Report report = inspect({job, options.appPath, options.userName, options.isOfHost,
                                   options.wantsAll, options.wantsAll});
    status = std::max(status, statusOf(report, options.isStrict));
    if (options.inJson) {
      jobs.push_back(findingsJson(job, report));
    } else {
      const std::string shownFile = visible(job);
      put(findingsText(shownFile, report, wantsColour(stdout)) + summaryText(shownFile, report));
    }
  }
  if (options.inJson) {
    const Json all = {{"format", "runlet-job check"}, {"version", 1}, {"jobs", jobs}};
    put(all.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
  }
  return status;
}

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
      std::fprintf(stderr, "runlet-job: explain: there is no finding %s\n", visible(code).c_str());
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

void addCheck(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("check", "Find what is wrong with job files");
  const auto options = std::make_shared<CheckOptions>();
  verb->add_option("job", options->jobs, "Job files, as the adapter gets them with -j")
      ->required()
      ->type_name("JOB");
  verb->add_option("-a", options->appPath, "The request's path of an application")
      ->type_name("APP");
  verb->add_option("-u", options->userName, "The request's user name")->type_name("USER");
  verb->add_flag("--host", options->isOfHost,
                 "Look at this machine's folders, programs and users as well");
  verb->add_flag("--json", options->inJson, "Write JSON, as runlet-job(1) describes it");
  verb->add_flag("--all", options->wantsAll,
                 "Look at all tasks, and show every finding, not only the first 20 of a code");
  verb->add_flag("--strict", options->isStrict, "Fail for warnings as well");
  verb->callback([=] { *action = [=] { return check(*options); }; });
}

void addExplain(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("explain", "Tell what a finding of check means");
  const auto codes = std::make_shared<std::vector<std::string>>();
  verb->add_option("code", *codes, "Codes such as RJ060; without one, all are listed")
      ->type_name("CODE");
  verb->callback([=] { *action = [=] { return explain(*codes); }; });
}

}  // namespace runlet_tool
