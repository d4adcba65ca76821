#include "tool/batch/batch.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "adapter/task_range.h"
#include "exec/start.h"
#include "tool/batch/task_user.h"
#include "tool/check/inspect.h"
#include "tool/check/report.h"
#include "tool/check/rules.h"
#include "tool/record/digest.h"
#include "tool/system/exit_status.h"
#include "tool/system/files.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/quoting.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;

// A job without a user runs as the caller, so the check takes the caller for the user of the
// request. Not so for root: a job must state explicitly that its programs run as root.
std::string requestUser() {
  return geteuid() == 0 ? "" : std::to_string(geteuid());
}

void reportWarnings(const AdapterContext& context, const char* verb, const Report& report) {
  const std::size_t count = report.count(Severity::warning);
  if (count == 0) return;
  std::string command = "runlet-job check";
  appendShellWord(context.jobFile, &command);
  std::fprintf(stderr, "runlet-job: %s: %s; see: %s\n", verb, quantity(count, "warning").c_str(),
               command.c_str());
}

// Whether all requested tasks were checked.
bool isComplete(const Question& question, const Report& report) {
  return question.range.isGiven() ||
         std::none_of(report.findings.begin(), report.findings.end(), [](const Finding& finding) {
           return finding.rule->id == RuleId::tasksNotChecked;
         });
}

// Loads the file only once: `*context` holds the checked job, whatever happens to the file later.
int checkJob(const Question& question, const char* verb, AdapterContext* context) {
  const Report report = inspect(question, context);
  if (report.isReadable && report.count(Severity::error) == 0 && isComplete(question, report)) {
    reportWarnings(*context, verb, report);
    return exitFine;
  }
  const std::string shownFile = visible(question.jobFile);
  const std::string text =
      findingsText(shownFile, report, wantsColour(stderr)) + summaryText(shownFile, report);
  std::fputs(text.c_str(), stderr);
  return report.isReadable ? exitFailing : exitUnreadable;
}

void settle(AdapterContext* context, const char* verb) {
  const std::string note = settleTaskUser(context);
  if (note.empty()) return;
  std::fprintf(stderr, "runlet-job: %s: the tasks run as %s\n", verb, note.c_str());
}

// The range that is checked.
RangeOptions rangeOf(const BatchOptions& options) {
  if (options.tasks.empty()) return options.range;
  return {options.tasks.front(), options.tasks.back() - options.tasks.front() + 1};
}

// The given tasks, all of which the job must have.
bool selectGiven(const std::vector<std::int32_t>& tasks, const char* verb, Batch* batch) {
  batch->tasks = tasks;
  const std::size_t count = batch->context.taskList.size();
  if (static_cast<std::size_t>(tasks.back()) <= count) return true;
  std::fprintf(stderr, "runlet-job: %s: no task %d: %s has %s\n", verb,
               static_cast<int>(tasks.back()), visible(batch->context.jobFile).c_str(),
               quantity(count, "task").c_str());
  return false;
}

bool selectRange(const char* verb, Batch* batch) {
  const runlet::TaskRange range = requestedTasks(batch->context);
  for (std::int32_t i = range.first; i < range.end && isTask(batch->context, i); ++i) {
    batch->tasks.push_back(i + 1);
  }
  if (!batch->tasks.empty()) return true;
  std::fprintf(stderr, "runlet-job: %s: no task in that range: %s has %s\n", verb,
               visible(batch->context.jobFile).c_str(),
               quantity(batch->context.taskList.size(), "task").c_str());
  return false;
}

// The file name without ".xml". Characters that a log name or its pattern cannot hold are replaced.
std::string jobName(const std::string& jobFile) {
  std::string name = jobFile.substr(jobFile.rfind('/') + 1);
  constexpr std::string_view ending = ".xml";
  if (name.ends_with(ending)) name.resize(name.size() - ending.size());
  const auto isUnfit = [](char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f' || c == '\\';
  };
  std::replace_if(name.begin(), name.end(), isUnfit, '_');
  return name.empty() ? "job" : name;
}

}  // namespace

int prepareBatch(const BatchOptions& options, const char* verb, Batch* batch) {
  AdapterContext& context = batch->context;
  const std::string jobFile = fullPath(currentFolder(), options.job);
  Question question = {jobFile, options.appPath, requestUser()};
  question.range = rangeOf(options);
  batch->digest = digestOfFile(jobFile);
  const int status = checkJob(question, verb, &context);
  if (status != exitFine) return status;
  // Otherwise the digest might not be that of the job that was loaded.
  if (digestOfFile(jobFile) != batch->digest) {
    std::fprintf(stderr, "runlet-job: %s: %s changed while it was read; nothing is run\n", verb,
                 visible(jobFile).c_str());
    return exitUnreadable;
  }
  context.userName.clear();  // was only for the check
  setRange(question.range, &context);
  settle(&context, verb);
  const bool hasTasks =
      options.tasks.empty() ? selectRange(verb, batch) : selectGiven(options.tasks, verb, batch);
  if (!hasTasks) return exitFailing;
  batch->isWhole = !question.range.isGiven();
  batch->attempts.assign(batch->tasks.size(), 1);
  batch->name = jobName(context.jobFile);
  batch->folder = fullPath(currentFolder(), runFolder(context));
  const bool hasLogFolder = !context.logFolder.empty();
  batch->logFolder = hasLogFolder ? fullPath(batch->folder, context.logFolder) : batch->folder;
  return exitFine;
}

bool requireRunFolder(const Batch& batch, const char* verb) {
  const int folder = doAsTaskUser(batch.context, [&] {
    const int entered = open(batch.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const bool mayEnter = entered != -1 && faccessat(entered, ".", X_OK, AT_EACCESS) == 0;
    return mayEnter ? entered : -1;
  });
  if (folder != -1) {
    close(folder);
    return true;
  }
  std::fprintf(stderr, "runlet-job: %s: cannot enter the run folder %s: %s\n", verb,
               visible(batch.folder).c_str(), std::strerror(errno));
  return false;
}

}  // namespace runlet_tool
