#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "exec/start.h"
#include "tool/batch/batch.h"
#include "tool/batch/become_task.h"
#include "tool/batch/display.h"
#include "tool/batch/limits.h"
#include "tool/batch/logs.h"
#include "tool/batch/scheduler.h"
#include "tool/batch/starter.h"
#include "tool/batch/summary.h"
#include "tool/record/ends.h"
#include "tool/system/exit_status.h"
#include "tool/system/processors.h"
#include "tool/system/signals.h"
#include "tool/text/characters.h"
#include "tool/text/terminal.h"
#include "tool/verbs.h"
#include "tool/verbs/options.h"

namespace runlet_tool {
namespace {

constexpr char name[] = "run";

// From this number of minutes on, a job's TaskTimeout is no limit.
constexpr std::int32_t unlimitedTimeout = 35791;

struct RunOptions {
  BatchOptions batch;
  std::int32_t jobs = 1;
  std::int32_t retries = 0;
  std::string halt;     // empty = never
  std::string timeout;  // empty = only the job's
  bool isQuiet = false;
  std::string endLinesId;  // empty = no end lines
  KeptVariables kept;
};

// The shorter one of the job's limit and that of the command line.
std::optional<std::chrono::milliseconds> timeLimitOf(const Batch& batch,
                                                     const RunOptions& options) {
  const std::int32_t minutes = batch.context.taskTimeout;
  const std::optional<std::chrono::milliseconds> own = parseTime(options.timeout);
  if (minutes <= 0 || minutes >= unlimitedTimeout) return own;
  const std::chrono::milliseconds ofJob = std::chrono::minutes(minutes);
  return own ? std::min(*own, ofJob) : ofJob;
}

std::optional<HaltRule> haltRuleOf(const Batch& batch, const RunOptions& options) {
  const std::optional<HaltOption> option = parseHalt(options.halt);
  if (!option) return {};
  return HaltRule{failuresOf(*option, batch.tasks.size()), option->isNow, options.halt};
}

TaskSource taskSource(const Batch& batch, Starter* starter) {
  return {batch.tasks.size(),
          [&batch](std::size_t index) { return openLog(batch, batch.tasks[index]); },
          [&batch, starter](std::size_t index, int log, const Announce& announce, pid_t* process) {
            runlet::TaskStart start;
            // Cannot fail: the check has composed every task.
            composeStart(batch.context, batch.tasks[index] - 1, &start);
            return starter->start(start, log, announce, process);
          }};
}

// Returns the exit status.
int runTasksOf(const Batch& batch, const RunOptions& options, Starter* starter) {
  // Held until the end: another signal must not cost an interrupted run its summary.
  const HeldSignals signals;
  const auto logOf = [&](std::size_t index) { return logPath(batch, batch.tasks[index]); };
  const SchedulerLimits limits = {options.jobs, timeLimitOf(batch, options), usualGrace,
                                  options.retries, haltRuleOf(batch, options)};
  const RunOutcome outcome = [&] {
    RunDisplay display(batch.tasks, logOf, options.isQuiet);
    return runTasks(taskSource(batch, starter), limits, signals, &display);
  }();
  const int status =
      writeSummary(batch, outcome.ends, {options.isQuiet, outcome.stopReason}, stdout);
  const std::string& id = options.endLinesId;
  if (!id.empty()) put(endLines(id, batch.tasks, outcome.ends));
  if (outcome.signal != 0) {
    std::fflush(stdout);  // whether it worked no longer matters to the status
    starter->end();       // otherwise it would end what is deliberately left running
    endBySignal(outcome.signal);
  }
  return status;
}

int runJob(const RunOptions& options) {
  const std::string& id = options.endLinesId;
  if (!id.empty() && !isEndLinesId(id)) {
    std::fprintf(stderr, "runlet-job: run: --tell-ends: %s is not a valid id\n",
                 visible(id).c_str());
    return exitUnreadable;
  }
  Starter starter(options.kept);  // forked first, while this process is small
  if (starter.error() != 0) {
    std::fprintf(stderr, "runlet-job: run: cannot create the process that starts tasks: %s\n",
                 std::strerror(starter.error()));
    return exitUnreadable;
  }
  Batch batch;
  const int refusal = prepareBatch(options.batch, name, &batch);
  if (refusal != exitFine) return refusal;
  const bool isReady = requireFullApplication(batch.context) && makeLogFolder(batch, name);
  return isReady ? runTasksOf(batch, options, &starter) : exitUnreadable;
}

std::string processorsOrDecimal(const std::string& text) {
  return text == "auto" ? std::to_string(usableProcessors()) : inDecimal(text);
}

void addLimits(CLI::App* verb, RunOptions* options) {
  verb->add_option("--jobs", options->jobs,
                   "Number of tasks to run at a time (default: 1), or auto: that of processors")
      ->transform(processorsOrDecimal)
      ->check(CLI::Range(1, INT32_MAX))
      ->type_name("K");
  verb->add_option("--retries", options->retries,
                   "Try a task that does not succeed again, up to N times (default: 0)")
      ->transform(inDecimal)
      ->check(CLI::Range(0, INT32_MAX))
      ->type_name("N");
  verb->add_option("--halt", options->halt,
                   "Stop early: soon starts no more tasks, now also ends running ones; "
                   "after the first failure, or with ,fail=N or ,fail=N% after so many")
      ->check(CLI::Validator(complaintAboutHalt, ""))
      ->type_name("WHEN");
  verb->add_option("--timeout", options->timeout,
                   "Time limit per task if shorter than the job's, such as 90s, 5m, 2h or 1d")
      ->check(CLI::Validator(complaintAboutTime, ""))
      ->type_name("TIME");
}

}  // namespace

void addRun(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand(name, "Run a job's tasks on this machine");
  const auto options = std::make_shared<RunOptions>();
  addBatchOptions(verb, &options->batch);
  addLimits(verb, options.get());
  verb->add_flag("--quiet", options->isQuiet, "Say nothing about tasks that succeed");
  // Only for the arrays of `submit`, and hidden.
  verb->add_option("--tell-ends", options->endLinesId)->group("");
  addKeptVariables(verb, "Variable to keep for tasks of another user; repeatable", &options->kept);
  verb->callback([=] { *action = [=] { return runJob(*options); }; });
}

}  // namespace runlet_tool
