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

// Options that may be repeated are taken as they were given: converted to a list, the library would
// see lists in them.
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
  verb->add_option("--throttle", options->throttle, "So many tasks of an array at a time")
      ->type_name("N")
      ->transform(inDecimal)
      ->check(positive);
  verb->add_option("--chunk", options->chunk, "So many tasks, one after the other, are an element")
      ->type_name("K")
      ->transform(inDecimal)
      ->check(positive);
  verb->add_option("--partition", options->partition, "Partition to run in")->type_name("P");
}

void addFlags(CLI::App* verb, SubmitOptions* options) {
  CLI::Option* dryRun = verb->add_flag("--dry-run", options->isDryRun,
                                       "Print the commands for a shell, and submit nothing");
  verb->add_flag("--wait", options->isWaiting,
                 "Wait until the tasks have ended, and tell how they have")
      ->excludes(dryRun);
}

}  // namespace

void addSubmit(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand(verbName, "Run the tasks of a job as an array of Slurm");
  const auto options = std::make_shared<SubmitOptions>();
  addBatchOptions(verb, &options->batch);
  addValues(verb, options.get());
  CLI::Option* sbatchOptions =
      addRepeated(verb, "--sbatch-option", "OPTION",
                  "An option for sbatch, with its value in one word; may be repeated",
                  complaintAboutSbatchOption);
  addKeptVariables(verb, "A variable of root's environment for the tasks, too; may be repeated",
                   &options->keptVariables);
  addFlags(verb, options.get());
  CLI::Option* failedOf = addRepeated(
      verb, "--failed-of", "JOBID",
      "Only the tasks that have failed in this array; may be repeated", complaintAboutId);
  for (const char* name : {"-s", "-n", "--chunk"}) failedOf->excludes(verb->get_option(name));
  verb->callback([=] {
    options->sbatchOptions = sbatchOptions->results();
    options->failedOf = failedOf->results();
    *action = [=] { return submit(*options); };
  });
}

}  // namespace runlet_tool
