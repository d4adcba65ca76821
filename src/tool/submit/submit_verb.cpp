#include "tool/submit/submit_verb.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tool/batch/logs.h"
#include "tool/batch/summary.h"
#include "tool/batch/user_environment.h"
#include "tool/submit/engine.h"
#include "tool/submit/failed_of.h"
#include "tool/submit/interruption.h"
#include "tool/submit/sbatch_command.h"
#include "tool/submit/submit_options.h"
#include "tool/submit/wait.h"
#include "tool/text/decimal.h"
#include "tool/text/output.h"
#include "tool/text/visible.h"

namespace runlet_tool {
namespace {

constexpr char verbName[] = "submit";

void say(const std::string& text) {
  std::fprintf(stderr, "runlet-job: submit: %s\n", text.c_str());
}

// What the arrays that there already are become when the next one cannot be submitted.
void cancel(const std::vector<SubmittedArray>& arrays) {
  bool isNoneLeft = true;
  for (const SubmittedArray& array : arrays) isNoneLeft = cancelArray(array.id) && isNoneLeft;
  if (isNoneLeft && !arrays.empty()) say("what had been submitted has been cancelled");
}

// All of them or none: false after a message, or when there was a signal.
bool submitAll(const Batch& batch, const SubmitOptions& options,
               const std::vector<ArrayPart>& parts, const SignalHold& hold,
               std::vector<SubmittedArray>* arrays) {
  for (const ArrayPart& part : parts) {
    const SbatchCommand command = sbatchCommand(batch, options, part);
    const Submission submission = submitArray(command);
    if (submission.id) arrays->push_back({*submission.id, part});
    if (submission.isSound && !hold.isInterrupted()) continue;
    cancel(*arrays);
    return false;
  }
  return true;
}

std::string arrayIdsText(const std::vector<SubmittedArray>& arrays, const char* separator) {
  std::string text;
  for (const SubmittedArray& array : arrays) text.append(array.id.number).append(separator);
  return text;
}

std::string listed(const std::vector<SubmittedArray>& arrays) {
  std::string ids = arrayIdsText(arrays, " ");
  ids.pop_back();
  return ids;
}

std::string farewellText(const std::vector<SubmittedArray>& arrays) {
  return std::string(overBar()) + "runlet-job: submit: the tasks go on; to stop them: scancel " +
         listed(arrays) + "\n";
}

int submitParts(const Batch& batch, const SubmitOptions& options,
                const std::vector<ArrayPart>& parts) {
  SignalHold hold;
  std::vector<SubmittedArray> arrays;
  if (!submitAll(batch, options, parts, hold, &arrays)) return exitUnreadable;
  put(arrayIdsText(arrays, "\n"));
  std::fflush(stdout);  // the ids are wanted even if the waiting ends early
  if (std::ferror(stdout) != 0) say("queued: " + listed(arrays));
  if (!options.isWaiting) return exitFine;
  const Farewell farewell(farewellText(arrays));
  hold.release();
  return writeSummary(batch, awaitTasks(batch, arrays), stderr);
}

int showCommands(const Batch& batch, const SubmitOptions& options,
                 const std::vector<ArrayPart>& parts) {
  for (const ArrayPart& part : parts) put(shellText(sbatchCommand(batch, options, part)));
  return exitFine;
}

int submitBatch(const Batch& batch, const SubmitOptions& options) {
  if (!canNameLogs(batch)) {
    say("sbatch cannot be told of a log folder with a backslash: " + visible(batch.logFolder));
    return exitFailing;
  }
  const std::vector<ArrayPart> parts =
      planArrays(batch.tasks, batch.context.taskList.size(), options.chunk, askMaxArraySize());
  if (options.isDryRun) return showCommands(batch, options, parts);
  return makeLogFolder(batch, verbName) ? submitParts(batch, options, parts) : exitUnreadable;
}

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
