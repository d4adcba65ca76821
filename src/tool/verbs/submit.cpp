#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/slurm/failed.h"
#include "tool/slurm/sbatch.h"
#include "tool/slurm/submission.h"
#include "tool/system/exit_status.h"
#include "tool/verbs.h"
#include "tool/verbs/options.h"

namespace runlet_tool {
namespace {

constexpr char verbName[] = "submit";

int submit(const SubmitOptions& options) {
  Batch batch;
  int status = prepareBatch(options.batch, verbName, &batch);
  if (status == exitFine && !options.failedOf.empty()) {
    status = keepFailedTasks(options.failedOf, &batch);
  }
  return status == exitFine && !batch.tasks.empty() ? submitBatch(batch, options) : status;
}

// Repeatable options are taken unconverted: in typed values, the library would look for lists.
CLI::Option* addRepeated(CLI::App* verb, const std::string& name, const std::string& type,
                         const std::string& help, std::string (*complaint)(const std::string&)) {
  return verb->add_option(name)
      ->description(help)
      ->type_name(type)
      ->check(CLI::Validator(complaint, ""))
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void addValues(CLI::App* verb, SubmitOptions* options) {
  const CLI::Range positive(1, std::numeric_limits<std::int32_t>::max());
  verb->add_option("--throttle", options->throttle, "Run up to N elements of an array at a time")
      ->type_name("N")
      ->transform(inDecimal)
      ->check(positive);
  verb->add_option("--chunk", options->chunk, "Run K tasks per array element")
      ->type_name("K")
      ->transform(inDecimal)
      ->check(positive);
  verb->add_option("--partition", options->partition, "Partition to run in")->type_name("P");
}

void addFlags(CLI::App* verb, SubmitOptions* options) {
  CLI::Option* dryRun = verb->add_flag("--dry-run", options->isDryRun,
                                       "Print the commands for a shell instead of submitting");
  verb->add_flag("--wait", options->isWaiting,
                 "Wait until the tasks have ended and report how they ended")
      ->excludes(dryRun);
}

}  // namespace

void addSubmit(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand(verbName, "Run a job's tasks as a Slurm job array");
  const auto options = std::make_shared<SubmitOptions>();
  addBatchOptions(verb, &options->batch);
  addValues(verb, options.get());
  CLI::Option* sbatchOptions = addRepeated(
      verb, "--sbatch-option", "OPTION",
      "Option for sbatch, with its value in the same word; repeatable", complaintAboutSbatchOption);
  addKeptVariables(verb, "Variable of root's environment to pass to the tasks; repeatable",
                   &options->keptVariables);
  addFlags(verb, options.get());
  CLI::Option* failedOf =
      addRepeated(verb, "--failed-of", "JOBID",
                  "Submit only the tasks that failed in this array; repeatable", complaintAboutId);
  for (const char* name : {"-s", "-n", "--chunk"}) failedOf->excludes(verb->get_option(name));
  verb->callback([=] {
    options->sbatchOptions = sbatchOptions->results();
    options->failedOf = failedOf->results();
    *action = [=] { return submit(*options); };
  });
}

}  // namespace runlet_tool
