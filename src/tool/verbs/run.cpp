#include <CLI/CLI.hpp>
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
#include "tool/batch/logs.h"
#include "tool/batch/scheduler.h"
#include "tool/batch/starter.h"
#include "tool/batch/summary.h"
#include "tool/record/ends.h"
#include "tool/system/exit_status.h"
#include "tool/system/signals.h"
#include "tool/text/characters.h"
#include "tool/text/terminal.h"
#include "tool/verbs.h"
#include "tool/verbs/options.h"

namespace runlet_tool {
namespace {

constexpr char name[] = "run";

struct RunOptions {
  BatchOptions batch;
  std::int32_t jobs = 1;
  std::string endLinesId;  // empty = no end lines
  KeptVariables kept;
};

std::optional<std::chrono::milliseconds> timeLimitOf(const Batch& batch) {
  const std::int32_t limit = batch.context.taskTimeout;
  if (limit <= 0) return {};
  return std::chrono::minutes(limit);
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
  const RunOutcome outcome =
      runTasks(taskSource(batch, starter), {options.jobs, timeLimitOf(batch), usualGrace}, signals);
  const int status = writeSummary(batch, outcome.ends, stdout);
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

}  // namespace

void addRun(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand(name, "Run a job's tasks on this machine");
  const auto options = std::make_shared<RunOptions>();
  addBatchOptions(verb, &options->batch);
  verb->add_option("--jobs", options->jobs, "Number of tasks to run at a time (default: 1)")
      ->transform(inDecimal)
      ->check(CLI::Range(1, INT32_MAX))
      ->type_name("K");
  // Only for the arrays of `submit`, and hidden.
  verb->add_option("--tell-ends", options->endLinesId)->group("");
  addKeptVariables(verb, "Variable to keep for tasks of another user; repeatable", &options->kept);
  verb->callback([=] { *action = [=] { return runJob(*options); }; });
}

}  // namespace runlet_tool
