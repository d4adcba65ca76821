#include "tool/report/text.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "tool/report/log_end.h"
#include "tool/report/statistics.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/terminal.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

// What is shown, so that the report fits a few screens.
constexpr std::size_t shownSessions = 4;
constexpr std::size_t failuresWithLogs = 3;
constexpr std::size_t shownFailures = 8;
constexpr std::size_t logLinesInText = 5;
constexpr std::size_t shownSlowest = 5;
constexpr std::size_t shownBuckets = 8;
constexpr std::size_t longestBar = 40;
constexpr std::size_t longestCommandInText = 100;  // bytes
constexpr std::size_t longestPathInText = 200;     // bytes

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

std::string row(const std::string& label, const std::string& value) {
  return padded(label, 10) + " " + value + "\n";
}

std::string shownPath(const std::string& path) {
  return shortened(visible(path), longestPathInText);
}

std::string sessionRows(const Overview& overview) {
  const std::size_t count = overview.sessions.size();
  if (count == 1) return "";
  const std::size_t first = count > shownSessions ? count - shownSessions : 0;
  std::string text;
  if (first > 0) text += row("sessions", quantity(first, "earlier session") + " not shown");
  for (std::size_t i = first; i < count; ++i) {
    text += row("session " + std::to_string(i + 1), timeText(overview.sessions[i].begin) + ", " +
                                                        sessionLengthText(overview, i) + ", " +
                                                        sessionEndText(overview, i));
  }
  return text;
}

// The folder of the latest log; empty if there is none.
std::string logFolder(const Record& record) {
  const auto last = std::find_if(record.attempts.rbegin(), record.attempts.rend(),
                                 [](const Attempt& attempt) { return !attempt.log.empty(); });
  return last == record.attempts.rend() ? "" : last->log.substr(0, last->log.rfind('/'));
}

std::string headLines(const Overview& overview) {
  const Session& last = overview.record.sessions.back();
  std::string text = row("batch", visible(overview.record.id));
  const std::string caution = cautionText(overview);
  if (!caution.empty()) text += row("caution", caution);
  text += row("state", stateText(overview));
  text += row("job", shownPath(last.job));
  text += row("command", sessionCommand(last, longestPathInText));
  const std::string logs = logFolder(overview.record);
  if (!logs.empty()) text += row("logs", shownPath(logs));
  text += row("version", shortened(visible(last.toolVersion), 40));
  text += row("began", timeText(overview.sessions.front().begin));
  text += row("ran for", runningText(overview));
  return text + sessionRows(overview);
}

// "60 tasks: 57 succeeded, 2 failed (17, 43)"
std::string counts(const Overview& overview) {
  std::string text = quantity(overview.tasks.size(), "task");
  const char* separator = ": ";
  for (std::size_t i = 0; i < standingCount; ++i) {
    const TaskNumbers& tasks = overview.tasksByStanding[i];
    if (tasks.count() == 0) continue;
    const auto standing = static_cast<Standing>(i);
    text += separator + std::to_string(tasks.count()) + " " + standingName(standing);
    if (standing != Standing::succeeded) text += " (" + numbersText(tasks) + ")";
    separator = ", ";
  }
  text += "\n";
  const std::string full = fullDiskText(overview);
  return "\n" + text + (full.empty() ? "" : full + "\n");
}

std::string logText(const std::string& path, const LogEnd& end) {
  if (path.empty()) return "";
  std::string text = "    log: " + shownPath(path) + "\n";
  if (!end.note.empty()) return text + "      " + end.note + "\n";
  for (const std::string& line : end.lines) text += "      | " + line + "\n";
  return text;
}

// The duration and the command only if there was a process.
std::string attemptLine(const Overview& overview, std::size_t attempt, bool hasColour) {
  const AttemptState& state = overview.attempts[attempt];
  const Attempt& recorded = overview.record.attempts[attempt];
  const bool isFine = state.standing == Standing::succeeded;
  std::string text = "  " + attemptTaskText(overview, attempt) + ": ";
  text += coloured(endText(overview, attempt), isFine ? Colour::none : Colour::red, hasColour);
  if (recorded.process != 0) {
    text += " after " + durationText(state.wall) + ": ";
    text += commandText(recorded.words, longestCommandInText);
  }
  return text + "\n";
}

std::string failures(const Overview& overview, bool hasColour) {
  const std::size_t count = overview.failures.size();
  if (count == 0) return "";
  const std::vector<std::size_t> attempts =
      attemptsOfFailures(overview, 0, std::min(count, shownFailures));
  const std::vector<LogEnd> ends = readLogEnds(
      overview.record, attemptsOfFailures(overview, 0, std::min(count, failuresWithLogs)),
      logLinesInText);
  std::string text = "\nFailures\n";
  for (std::size_t i = 0; i < attempts.size(); ++i) {
    text += attemptLine(overview, attempts[i], hasColour);
    if (i < ends.size()) text += logText(overview.record.attempts[attempts[i]].log, ends[i]);
  }
  if (count <= shownFailures) return text;
  return text + "  and " + std::to_string(count - shownFailures) + " more\n";
}

std::string slowest(const Overview& overview, bool hasColour) {
  if (overview.slowest.empty()) return "";
  std::string text = "\nSlowest\n";
  for (std::size_t i = 0; i < std::min(overview.slowest.size(), shownSlowest); ++i) {
    text += attemptLine(overview, overview.slowest[i], hasColour);
  }
  return text;
}

std::string bar(std::size_t count, std::size_t greatest) {
  const std::size_t length = (count * longestBar + greatest - 1) / greatest;
  return std::string(length, '#');
}

std::string bars(const std::vector<double>& durations) {
  // Not many more buckets than durations.
  const std::size_t most = std::clamp<std::size_t>(durations.size(), 2, shownBuckets);
  const std::vector<Bucket> buckets = histogram(durations, most);
  std::size_t width = 0;
  std::size_t greatest = 0;
  std::vector<std::string> labels;
  for (const Bucket& bucket : buckets) {
    labels.push_back(durationText(bucket.from) + " to " + durationText(bucket.to));
    width = std::max(width, labels.back().size());
    greatest = std::max(greatest, bucket.count);
  }
  std::string text;
  for (std::size_t i = 0; i < buckets.size(); ++i) {
    text += "  " + padded(labels[i], width) + "  " + std::to_string(buckets[i].count);
    if (buckets[i].count > 0) {
      const std::size_t digits = std::to_string(buckets[i].count).size();
      text += std::string(std::to_string(greatest).size() - digits + 1, ' ') +
              bar(buckets[i].count, greatest);
    }
    text += "\n";
  }
  return text;
}

std::string durationLines(const Overview& overview) {
  const std::vector<double>& sorted = overview.durations;
  if (sorted.empty()) return "";
  std::string text = "\nDurations of " + quantity(sorted.size(), "attempt") + "\n";
  text += "  min " + durationText(sorted.front());
  text += ", median " + durationText(quantile(sorted, 0.5));
  text += ", 90 % " + durationText(quantile(sorted, 0.9));
  text += ", 99 % " + durationText(quantile(sorted, 0.99));
  text += ", max " + durationText(sorted.back()) + "\n";
  return text + bars(sorted);
}

std::string totals(const Overview& overview) {
  std::string text = "\nTotals\n";
  text += "  CPU time               " + durationText(overview.cpu) + "\n";
  text += "  greatest peak memory   " + sizeText(overview.peakMemory);
  if (overview.peakAttempt) {
    text += " (" + attemptTaskText(overview, *overview.peakAttempt) + ")";
  }
  text += "\n  at a time on average   " + withoutLineEnd("%.1f", overview.atATime()) + " of " +
          std::to_string(overview.record.sessions.back().atATime) + "\n";
  text += "  lost without success   " + lostText(overview) + " in " +
          quantity(overview.lostAttempts, "attempt") + "\n";
  return text;
}

}  // namespace

std::string reportText(const Overview& overview, bool hasColour) {
  return headLines(overview) + counts(overview) + failures(overview, hasColour) +
         slowest(overview, hasColour) + durationLines(overview) + totals(overview);
}

}  // namespace runlet_tool
