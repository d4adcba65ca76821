#include "tool/batch/summary.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tool/batch/logs.h"
#include "tool/job/preview.h"
#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/quoting.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

// In the order of Ending.
constexpr const char* totalNames[] = {"succeeded", "failed",      "killed",
                                      "timed out", "interrupted", "not started"};

// The tasks by kind of end, and by word for Ending::other.
using Totals = std::map<std::pair<Ending, std::string>, TaskNumbers>;

std::string endingName(const Totals::value_type& total) {
  const auto& [ending, word] = total.first;
  return ending == Ending::other ? visible(word) : totalNames[static_cast<std::size_t>(ending)];
}

// "6 tasks: 4 succeeded, 2 failed (3, 5)"
std::string totalsText(const Batch& batch, const Totals& totals) {
  std::string text = quantity(batch.tasks.size(), "task");
  const char* separator = ": ";
  for (const Totals::value_type& total : totals) {
    text.append(separator).append(std::to_string(total.second.count())).append(" ");
    text += endingName(total);
    const bool isFine = total.first.first == Ending::succeeded;
    if (!isFine) text.append(" (").append(total.second.text()).append(")");
    separator = ", ";
  }
  return text;
}

std::string taskText(const Batch& batch, std::size_t index, const TaskEnd& end, bool hasColour,
                     Preview* preview) {
  const std::int32_t task = batch.tasks[index];
  previewCommand(batch.context, task - 1, preview);
  const bool isFine = end.ending == Ending::succeeded;
  std::string text = "task " + std::to_string(task) + ": ";
  text += coloured(visible(describe(end)), isFine ? Colour::none : Colour::red, hasColour);
  text.append(": ").append(shellCommand(preview->words)).append("\n");
  if (isFine) return text;
  std::string log;
  appendShellWord(logPath(batch, task, batch.attempts[index]), &log);
  return text.append("  log: ").append(log).append("\n");
}

}  // namespace

int writeSummary(const Batch& batch, const std::vector<TaskEnd>& ends,
                 const SummaryOptions& options, std::FILE* out) {
  const bool hasColour = wantsColour(out);
  Preview preview;
  const auto showAll = [&](bool areFine) {
    for (std::size_t i = 0; i < ends.size(); ++i) {
      const bool isFine = ends[i].ending == Ending::succeeded;
      if (isFine != areFine || ends[i].ending == Ending::notStarted) continue;
      std::fputs(taskText(batch, i, ends[i], hasColour, &preview).c_str(), out);
    }
  };
  showAll(false);
  if (!options.isQuiet) showAll(true);
  Totals totals;
  for (std::size_t i = 0; i < ends.size(); ++i) {
    const bool isOther = ends[i].ending == Ending::other;
    totals[{ends[i].ending, isOther ? ends[i].word : ""}].add(batch.tasks[i]);
  }
  const std::string& reason = options.stopReason;
  if (!reason.empty()) std::fprintf(out, "stopped early: %s\n", reason.c_str());
  std::fprintf(out, "%s\n", totalsText(batch, totals).c_str());
  return statusOf(ends);
}

int statusOf(const std::vector<TaskEnd>& ends) {
  const bool isFine = std::all_of(
      ends.begin(), ends.end(), [](const TaskEnd& end) { return end.ending == Ending::succeeded; });
  return isFine ? exitFine : exitFailing;
}

}  // namespace runlet_tool
