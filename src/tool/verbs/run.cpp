#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exec/start.h"
#include "tool/batch/batch.h"
#include "tool/batch/become_task.h"
#include "tool/batch/display.h"
#include "tool/batch/expected.h"
#include "tool/batch/limits.h"
#include "tool/batch/logs.h"
#include "tool/batch/recording.h"
#include "tool/batch/scheduler.h"
#include "tool/batch/starter.h"
#include "tool/batch/summary.h"
#include "tool/batch/task_rights.h"
#include "tool/record/ends.h"
#include "tool/system/exit_status.h"
#include "tool/system/processors.h"
#include "tool/system/signals.h"
#include "tool/text/characters.h"
#include "tool/text/fields.h"
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
  bool keepsAllLogs = true;  // otherwise only those of tries that did not succeed
  std::string endLinesId;    // empty = no end lines; otherwise there is no record
  RecordOptions record;
  std::vector<std::string> expected;  // patterns of files
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

// A task that has succeeded fails if one of its files is missing.
void lookForFiles(const Batch& batch, std::size_t index, TaskEnd* end) {
  if (end->ending != Ending::succeeded) return;
  const std::string complaint = complaintAboutFiles(batch, batch.tasks[index], batch.expected);
  if (complaint.empty()) return;
  // A stop signal may have cut the look short.
  const bool isCut = isStopSignalPending();
  *end = isCut ? TaskEnd{Ending::interrupted, 0, ""} : TaskEnd{Ending::failed, 0, complaint};
}

// A log that cannot be removed stays, and the record says so.
void removeLogOfSuccess(const Batch& batch, std::size_t index, TaskTry* tried) {
  if (tried->end.ending != Ending::succeeded) return;
  tried->isLogRemoved = removeLog(batch, batch.tasks[index], batch.attempts[index]) == 0;
}

// Looks whether the disk of the logs is full.
class DiskLook {
 public:
  explicit DiskLook(const Batch& batch) : batch_(batch) {}

  bool isFull() {
    // With the rights of another user this takes a process, and so is not done for each task.
    const auto pause = std::chrono::seconds(isOfAnother(batch_.context.uid) ? 1 : 0);
    const auto now = std::chrono::steady_clock::now();
    if (now < last_ + pause) return isFull_;
    last_ = now;
    isFull_ = isDiskFull(batch_);
    return isFull_;
  }

 private:
  const Batch& batch_;
  std::chrono::steady_clock::time_point last_;
  bool isFull_ = false;
};

TaskSource taskSource(const Batch& batch, const RunOptions& options, DiskLook* disk,
                      Starter* starter) {
  return {batch.tasks.size(),
          [&batch](std::size_t index) { return openLog(batch, batch.tasks[index]); },
          [&batch, starter](std::size_t index, int log, const Announce& announce, pid_t* process) {
            runlet::TaskStart start;
            // Cannot fail: the check has composed every task.
            composeStart(batch.context, batch.tasks[index] - 1, &start);
            return starter->start(start, log, announce, process);
          },
          {},
          [&batch, &options, disk](std::size_t index, TaskTry* tried) {
            lookForFiles(batch, index, &tried->end);
            if (!options.keepsAllLogs) removeLogOfSuccess(batch, index, tried);
            tried->isDiskFull = tried->process != 0 && !tried->isLogRemoved && disk->isFull();
            return true;
          }};
}

void addRecording(Recording* recording, Batch* batch, TaskSource* source) {
  source->openLog = [=](std::size_t index) { return recording->openLog(index, batch); };
  source->started = [=](std::size_t index, const TaskTry& tried) {
    return recording->taskStarted(*batch, index, tried);
  };
  source->ended = [=, look = source->ended](std::size_t index, TaskTry* tried) {
    return look(index, tried) && recording->taskEnded(index, *tried);
  };
}

// What remains to be done after the tasks have been run. Returns the exit status, or ends the
// process by the signal that interrupted the run. `recording` may be null.
int endRun(const Batch& batch, const RunOptions& options, const RunOutcome& outcome,
           Recording* recording, Starter* starter) {
  if (!options.keepsAllLogs) removeEmptyLogFolder(batch);
  // Before the summary, which may be read slowly.
  const bool isRecorded = recording == nullptr || recording->end(outcome.stopReason);
  const int status =
      options.record.asJson
          ? statusOf(outcome.ends)
          : writeSummary(batch, outcome.ends, {options.isQuiet, outcome.stopReason}, stdout);
  const std::string& id = options.endLinesId;
  if (!id.empty()) put(endLines(id, batch.tasks, outcome.ends));
  if (outcome.signal != 0) {
    std::fflush(stdout);  // whether it worked no longer matters to the status
    starter->end();       // otherwise it would end what is deliberately left running
    endBySignal(outcome.signal);
  }
  return isRecorded ? status : exitUnreadable;
}

// Returns the exit status. `recording` may be null.
int runTasksOf(Batch* batch, const RunOptions& options, Recording* recording, Starter* starter) {
  // Held until the end: another signal must not cost an interrupted run its summary.
  const HeldSignals signals;
  DiskLook disk(*batch);
  TaskSource source = taskSource(*batch, options, &disk, starter);
  if (recording != nullptr) addRecording(recording, batch, &source);
  const auto logOf = [batch](std::size_t index) {
    return logPath(*batch, batch->tasks[index], batch->attempts[index]);
  };
  const SchedulerLimits limits = {options.jobs, timeLimitOf(*batch, options), usualGrace,
                                  options.retries, haltRuleOf(*batch, options)};
  const RunOutcome outcome = [&] {
    RunDisplay display(batch->tasks, logOf, options.isQuiet);
    return runTasks(source, limits, signals, &display);
  }();
  return endRun(*batch, options, outcome, recording, starter);
}

SessionLimits sessionLimits(const Batch& batch, const RunOptions& options) {
  const auto limit = timeLimitOf(batch, options);
  return {options.jobs, limit ? std::chrono::duration<double>(*limit).count() : 0};
}

// Whether the tasks can be run, after a message on standard error if not.
bool isReady(const Batch& batch) {
  return areFit(batch.expected, name, batch.context) && requireFullApplication(batch.context) &&
         requireRunFolder(batch, name);
}

// For a batch of which nothing has to run. Otherwise it would differ from its job the next time,
// too.
int recordChanges(const RunOptions& options, const Batch& batch, Recording* recording) {
  if (!recording->hasChanged()) return exitFine;
  const int status = recording->open(options.record, sessionLimits(batch, options), batch);
  if (status != exitFine) return status;
  return recording->end("") ? exitFine : exitUnreadable;
}

int runRecorded(const RunOptions& options, Batch* batch, Starter* starter) {
  Recording recording;
  int status = recording.choose(options.record, batch);
  if (status != exitFine) return status;
  if (batch->tasks.empty()) return recordChanges(options, *batch, &recording);
  // Those that it takes from a record may not fit the job any more.
  if (!areFit(batch->expected, name, batch->context)) return exitUnreadable;
  if (!makeLogFolder(*batch, name)) return exitUnreadable;
  status = recording.open(options.record, sessionLimits(*batch, options), *batch);
  if (status != exitFine) {
    removeEmptyLogFolder(*batch);
    return status;
  }
  std::fprintf(stderr, "runlet-job: run: batch %s, logs in %s\n", recording.id().c_str(),
               visible(batch->logFolder).c_str());
  return runTasksOf(batch, options, &recording, starter);
}

int runJob(RunOptions options) {
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
  // Who reads the output may leave. This is not for the tasks, which the starter begins.
  std::signal(SIGPIPE, SIG_IGN);
  // A limit on the size of files makes a write fail, which is reported.
  std::signal(SIGXFSZ, SIG_IGN);
  Batch batch;
  int status = takeJobFromRecord(&options.record, &options.batch);
  if (status == exitFine) status = prepareBatch(options.batch, name, &batch);
  if (status != exitFine) return status;
  batch.expected = options.expected;
  if (!isReady(batch)) return exitUnreadable;
  if (id.empty()) return runRecorded(options, &batch, &starter);
  return makeLogFolder(batch, name) ? runTasksOf(&batch, options, nullptr, &starter)
                                    : exitUnreadable;
}

// Numbers and ranges, such as "2,5-9", in any order.
std::string readTasks(const std::string& text, std::vector<std::int32_t>* tasks) {
  tasks->clear();
  for (const std::string_view part : split(',', text)) {
    const std::optional<NumberRange> range = parseRange(part);
    constexpr std::int32_t most = 10'000'000;
    if (!range || range->first < 1 || range->last > most) {
      return "not a list of task numbers such as 2,5-9: " + visible(text);
    }
    for (std::int32_t task = range->first; task <= range->last; ++task) tasks->push_back(task);
  }
  std::sort(tasks->begin(), tasks->end());
  tasks->erase(std::unique(tasks->begin(), tasks->end()), tasks->end());
  return tasks->empty() ? "not a list of task numbers such as 2,5-9: " + visible(text) : "";
}

// A variable of a script that is not set must not select something else.
std::string valueOf(const CLI::Option* option) {
  if (option->results().front().empty()) {
    throw CLI::ValidationError(option->get_name(), "the value is empty");
  }
  return option->results().front();
}

// Returns what takes the values once the command line has been parsed.
std::function<void()> addRecordOptions(CLI::App* verb, RunOptions* options) {
  RecordOptions* const record = &options->record;
  verb->get_option("job")->required(false);
  CLI::Option* tasks =
      verb->add_option_function<std::string>(
              "--tasks", [=](const std::string& text) { readTasks(text, &options->batch.tasks); },
              "Run only these tasks, such as 2,5-9")
          ->check([=](const std::string& text) {
            std::vector<std::int32_t> unused;
            return readTasks(text, &unused);
          })
          ->type_name("LIST");
  CLI::Option* resume =
      verb->add_option("--resume")
          ->description(
              "Run what has not succeeded in the batch ID (default: the last one of JOB, or of "
              "all without JOB)")
          ->type_name("ID")
          ->expected(0, 1);
  verb->add_flag("--accept-changes", record->acceptChanges,
                 "Go on although the job has changed since that batch");
  CLI::Option* failedOf =
      verb->add_option("--failed-of")
          ->description(
              "Run only what was started and did not succeed in the batch ID; JOB "
              "defaults to its job")
          ->type_name("ID");
  CLI::Option* file = verb->add_option("--record")
                          ->description("Create the record of the batch as this file")
                          ->type_name("FILE");
  verb->add_flag("--json", record->asJson, "Print the record as it grows instead of a summary");
  CLI::Option* expected = addExpected(
      verb,
      "A task fails if there is no such file at its end; placeholders as in the job; repeatable");
  for (const char* range : {"-s", "-n"}) {
    for (CLI::Option* option : {tasks, resume, failedOf}) option->excludes(verb->get_option(range));
  }
  resume->excludes(tasks)->excludes(failedOf)->excludes(file);
  failedOf->excludes(tasks);
  // Taken unconverted: in typed values, the library would look for lists and comments.
  return [=] {
    if (*resume) record->resume = resume->results().empty() ? "" : resume->results().front();
    if (*failedOf) record->failedOf = valueOf(failedOf);
    if (*file) record->file = valueOf(file);
    options->expected = expected->results();
    record->takesExpected = options->expected.empty();
    std::erase(options->expected, "");  // only says that nothing is expected
    if (record->acceptChanges && !*resume && !*failedOf) {
      throw CLI::RequiresError("--accept-changes", "--resume or --failed-of");
    }
  };
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
  const std::function<void()> takeRecordOptions = addRecordOptions(verb, options.get());
  addLimits(verb, options.get());
  verb->add_flag("--quiet", options->isQuiet,
                 "Say nothing while tasks run, and nothing about tasks that succeed");
  verb->add_option_function<std::string>(
          "--keep-logs", [=](const std::string& text) { options->keepsAllLogs = text == "all"; },
          "Keep all logs (the default), or only those of tries that failed")
      ->check(CLI::IsMember({"all", "failed"}))
      ->type_name("all|failed");
  // Only for the arrays of `submit`, and hidden.
  verb->add_option("--tell-ends", options->endLinesId)->group("");
  addKeptVariables(verb, "Variable to keep for tasks of another user; repeatable", &options->kept);
  verb->callback([=] {
    takeRecordOptions();
    const bool isInRecord = options->record.resume || options->record.failedOf;
    if (options->batch.job.empty() && !isInRecord) throw CLI::RequiredError("job");
    *action = [=] { return runJob(*options); };
  });
}

}  // namespace runlet_tool
