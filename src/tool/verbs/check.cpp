#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/check/inspect.h"
#include "tool/check/report.h"
#include "tool/check/rules.h"
#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/text/json.h"
#include "tool/text/terminal.h"
#include "tool/verbs.h"
#include "tool/verbs/options.h"

namespace runlet_tool {
namespace {

struct CheckOptions {
  std::vector<std::string> jobs;
  std::string appPath;
  std::string userName;
  bool isOfHost = false;
  bool inJson = false;
  bool isStrict = false;
  bool wantsAll = false;
  std::vector<std::string> expected;  // patterns of files that tasks must make
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
    runlet::AdapterContext context;
    const Report report = inspect({job, options.appPath, options.userName, options.isOfHost,
                                   options.wantsAll, options.wantsAll},
                                  &context);
    status = std::max(status, statusOf(report, options.isStrict));
    if (!areFit(options.expected, "check", context)) status = std::max(status, exitFailing);
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

}  // namespace

void addCheck(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("check", "Check job files for problems");
  const auto options = std::make_shared<CheckOptions>();
  verb->add_option("job", options->jobs, "Job files, named as in the adapter's -j")
      ->required()
      ->type_name("JOB");
  addApplication(verb, &options->appPath);
  verb->add_option("-u", options->userName, "User name of the request")->type_name("USER");
  verb->add_flag("--host", options->isOfHost,
                 "Also check this machine's folders, programs and users");
  verb->add_flag("--json", options->inJson, "Write JSON; see runlet-job(1)");
  verb->add_flag("--all", options->wantsAll,
                 "Check all tasks and show all findings, not only 20 per code");
  verb->add_flag("--strict", options->isStrict, "Fail on warnings, too");
  CLI::Option* expected = addExpected(verb, "Check a pattern for --expect of run; repeatable");
  verb->callback([=] {
    options->expected = expected->results();
    *action = [=] { return check(*options); };
  });
}

}  // namespace runlet_tool
