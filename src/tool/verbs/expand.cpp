#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "adapter/context.h"
#include "adapter/task_range.h"
#include "tool/job/expansion.h"
#include "tool/job/loading.h"
#include "tool/job/preview.h"
#include "tool/job/range.h"
#include "tool/job/work_limit.h"
#include "tool/system/exit_status.h"
#include "tool/text/terminal.h"
#include "tool/verbs.h"
#include "tool/verbs/options.h"

namespace runlet_tool {
namespace {

struct ExpandOptions {
  std::string job;
  RangeOptions range;
  std::string appPath;
  std::string userName;
  bool inJson = false;
};

runlet::AdapterContext requestOf(const ExpandOptions& options) {
  runlet::AdapterContext context;
  context.jobFile = options.job;
  context.appPath = options.appPath;
  context.userName = options.userName;
  setRange(options.range, &context);
  return context;
}

std::unique_ptr<ExpandReport> makeReport(bool inJson) {
  if (inJson) return std::make_unique<JsonExpandReport>();
  return std::make_unique<TextExpandReport>(wantsColour(stdout));
}

// 0 if unknown.
std::size_t fileSize(const std::string& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

// Returns whether all tasks of the request would be started and were reported. If `isBounded`, the
// work is limited by the size of the file.
bool reportTasks(const runlet::AdapterContext& context, bool isBounded, ExpandReport* report) {
  const runlet::TaskRange range = requestedTasks(context);
  const auto size = static_cast<std::int32_t>(context.taskList.size());
  const std::int32_t end = std::min(range.end, size);
  // Output to a terminal is its own progress display.
  const bool needsBar = isatty(STDOUT_FILENO) != 1;
  Progress progress("expanding", needsBar ? static_cast<std::size_t>(std::max(end, 0)) : 0);
  Preview preview;
  bool allStart = true;
  bool isOver = false;
  WorkLimit limit(fileSize(context.jobFile));
  for (std::int32_t index = range.first; index < end; ++index) {
    if (isBounded && limit.isSpent()) {
      report->cut(index, end - index);
      return false;
    }
    if (!isOver) previewTask(context, index, index == range.first, &preview);
    limit.addPreview(preview, context, index);
    limit.addOutput(preview);
    report->task(index + 1, preview);
    allStart = allStart && preview.outcome == Outcome::starts;
    if (!isOver && endsRequest(preview.outcome)) {
      isOver = true;
      previewNotReached(index + 1, &preview);
    }
    progress.show(static_cast<std::size_t>(index));
  }
  return allStart;
}

int expandJob(const ExpandOptions& options) {
  runlet::AdapterContext context = requestOf(options);
  const LoadResult result = loadJob(&context);
  const std::unique_ptr<ExpandReport> report = makeReport(options.inJson);
  report->begin(options.job, result);
  const bool isLoaded = result.loading == Loading::loaded;
  // With an explicit number of tasks, all of them are wanted.
  const bool isBounded = !options.range.count.has_value();
  const bool allStart = isLoaded && reportTasks(context, isBounded, report.get());
  report->end();
  if (result.loading == Loading::unreadable) return exitUnreadable;
  return allStart ? exitFine : exitFailing;
}

}  // namespace

void addExpand(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("expand", "Show the final command of every task");
  const auto options = std::make_shared<ExpandOptions>();
  verb->add_option("job", options->job, "Job file, named as in the adapter's -j")
      ->required()
      ->type_name("JOB");
  addRangeOptions(verb, &options->range);
  addApplication(verb, &options->appPath);
  verb->add_option("-u", options->userName, "User name of the request")->type_name("USER");
  verb->add_flag("--json", options->inJson, "Write JSON; see runlet-job(1)");
  verb->callback([=] { *action = [=] { return expandJob(*options); }; });
}

}  // namespace runlet_tool
