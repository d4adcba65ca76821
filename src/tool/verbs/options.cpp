#include "tool/verbs/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "tool/batch/expected.h"
#include "tool/batch/task_rights.h"

namespace runlet_tool {

std::string inDecimal(const std::string& text) {
  const std::size_t begin = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
  const std::size_t zeros = std::min(text.find_first_not_of('0', begin), text.size()) - begin;
  const bool isZero = begin + zeros == text.size() && zeros > 0;
  return text.substr(0, begin) + text.substr(begin + zeros - (isZero ? 1 : 0));
}

void addRangeOptions(CLI::App* verb, RangeOptions* options) {
  verb->add_option("-s", options->first, "Number of the first task (default: 1)")
      ->transform(inDecimal)
      ->type_name("N");
  verb->add_option("-n", options->count, "Number of tasks (default: 1 with -s, otherwise all)")
      ->transform(inDecimal)
      ->type_name("N");
}

void addApplication(CLI::App* verb, std::string* appPath) {
  verb->add_option("-a", *appPath, "Application path of the request")->type_name("APP");
}

void addBatchOptions(CLI::App* verb, BatchOptions* options) {
  verb->add_option("job", options->job, "Job file")->required()->type_name("JOB");
  addRangeOptions(verb, &options->range);
  addApplication(verb, &options->appPath);
}

void addKeptVariables(CLI::App* verb, const std::string& help, std::vector<std::string>* names) {
  verb->add_option("--keep-env", *names, help)
      ->expected(1)
      ->allow_extra_args(false)  // otherwise the words after the name would be names, too
      ->take_all()
      ->check(CLI::Validator(complaintAboutVariable, ""))
      ->type_name("NAME");
}

CLI::Option* addExpected(CLI::App* verb, const std::string& help) {
  return verb->add_option("--expect")
      ->description(help)
      ->type_name("PATTERN")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

bool areFit(const std::vector<std::string>& patterns, const char* verb,
            const runlet::AdapterContext& context) {
  bool areFit = true;
  for (const std::string& pattern : patterns) {
    const std::string complaint = complaintAboutPattern(context, pattern);
    if (complaint.empty()) continue;
    std::fprintf(stderr, "runlet-job: %s: --expect: %s\n", verb, complaint.c_str());
    areFit = false;
  }
  return areFit;
}

}  // namespace runlet_tool
