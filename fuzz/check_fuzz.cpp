// The check of runlet-job: the input is a byte for the options of the request, and the job file.
// The findings must include an error if and only if the adapter does not start every task.

#include <algorithm>

#include "fuzz.h"
#include "tool/check/inspect.h"
#include "tool/job/loading.h"
#include "tool/job/preview.h"

namespace {

using runlet_tool::Finding;
using runlet_tool::Question;

bool startsEveryTask(const Question& question) {
  runlet::AdapterContext context;
  context.jobFile = question.jobFile;
  context.appPath = question.appPath;
  context.userName = question.userName;
  if (runlet_tool::loadJob(&context).loading != runlet_tool::Loading::loaded) return false;
  runlet_tool::Preview preview;
  for (std::size_t i = 0; i < context.taskList.size(); ++i) {
    previewTask(context, static_cast<std::int32_t>(i), i == 0, &preview);
    if (preview.outcome != runlet_tool::Outcome::starts) return false;
  }
  return !context.taskList.empty();
}

// Some findings are errors because of their danger, even if every task starts.
bool keepsTasksFromStarting(const Finding& finding) {
  return finding.rule->severity == runlet_tool::Severity::error && !isOfDanger(finding.rule->id);
}

}  // namespace

void runlet_fuzz::tryInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return;
  static const runlet_fuzz::MemoryFile file("job.xml");
  file.write(data + 1, size - 1);
  const Question question = {file.path(), (*data & 1U) != 0 ? "/opt/tool" : "",
                             (*data & 2U) != 0 ? "somebody" : "", false};
  const runlet_tool::Report report = inspect(question);
  const auto lines = std::count(data, data + size, std::uint8_t{'\n'}) +
                     std::count(data, data + size, std::uint8_t{'\r'}) + 1;
  for (const Finding& finding : report.findings) {
    require(finding.place.line >= 0 && finding.place.line <= lines, "a line of the file");
    require(!finding.why.empty() && !finding.instead.empty(), "a reason and advice");
  }
  const bool hasError =
      std::any_of(report.findings.begin(), report.findings.end(), keepsTasksFromStarting);
  require(hasError != startsEveryTask(question), "an error where a task is not started");
}
