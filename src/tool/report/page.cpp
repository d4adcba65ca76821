#include "tool/report/page.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "tool/report/charts.h"
#include "tool/report/log_end.h"
#include "tool/report/markup.h"
#include "tool/report/page_style.h"
#include "tool/report/statistics.h"
#include "tool/report/time_axis.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

// What is shown, so that a page stays small.
constexpr std::size_t mostFailures = 1000;
constexpr std::size_t openFailures = 20;
constexpr std::size_t mostFailureBytes = 900'000;
constexpr std::size_t mostSessions = 50;
constexpr std::size_t mostBuckets = 12;
constexpr std::size_t shownLogLines = 5;
constexpr std::size_t longestCommand = 300;  // bytes
constexpr std::size_t longestPath = 500;     // bytes

constexpr std::string_view head =
    "<!DOCTYPE html>\n"
    "<html xmlns=\"http://www.w3.org/1999/xhtml\" lang=\"en\">\n"
    "<head>\n"
    "<meta charset=\"utf-8\"/>\n"
    "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
    "style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'\"/>\n"
    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
    "<meta name=\"color-scheme\" content=\"light dark\"/>\n";

std::string element(const char* name, const std::string& content) {
  return std::string("<") + name + ">" + content + "</" + name + ">";
}

std::string element(const char* name, const char* cssClass, const std::string& content) {
  return std::string("<") + name + attribute("class", cssClass) + ">" + content + "</" + name + ">";
}

std::string section(const char* title, const std::string& content) {
  return "<section>\n" + element("h2", title) + "\n" + content + "</section>\n";
}

std::string tableHead(const std::vector<const char*>& columns) {
  std::string row;
  for (const char* column : columns) row += "<th scope=\"col\">" + std::string(column) + "</th>";
  return "<thead><tr>" + row + "</tr></thead>\n";
}

std::string pathText(const std::string& path) {
  return shortened(visible(path), longestPath);
}

std::string jobName(const Overview& overview) {
  const std::string& path = overview.record.sessions.back().job;
  return shortened(visible(path.substr(path.rfind('/') + 1)), 100);
}

// "57 of 60 tasks succeeded"
std::string headline(const Overview& overview) {
  const std::int32_t fine = overview.tasksWith(Standing::succeeded).count();
  const std::size_t all = overview.tasks.size();
  return std::to_string(fine) + " of " + quantity(all, "task") + " succeeded";
}

// --- The top

std::string key(Look look, const std::string& text) {
  return "<li><span class=\"key\">" + barChart(1, look) + "</span> " + text + "</li>";
}

// How many tasks ended how, as a bar and in words.
std::string resultBar(const Overview& overview) {
  std::string parts;
  std::string keys;
  for (std::size_t i = 0; i < standingCount; ++i) {
    const TaskNumbers& tasks = overview.tasksByStanding[i];
    if (tasks.count() == 0) continue;
    const auto standing = static_cast<Standing>(i);
    const double share = tasks.count() / static_cast<double>(overview.tasks.size());
    parts += "<div" + attribute("style", withoutLineEnd("flex-grow:%.6f", share)) + ">" +
             barChart(1, lookOf(standing)) + "</div>";
    std::string text = std::to_string(tasks.count()) + " " + standingName(standing);
    if (standing != Standing::succeeded) text += ": " + numbersText(tasks);
    keys += key(lookOf(standing), markup(text));
  }
  return R"(<div class="results" aria-hidden="true">)" + parts + "</div>\n" +
         element("ul", "keys", keys) + "\n";
}

std::string figure(const char* name, const std::string& value, const std::string& more) {
  return "<div>" + element("dt", name) + element("dd", markup(value)) +
         (more.empty() ? "" : element("dd", "more", markup(more))) + "</div>\n";
}

std::string figures(const Overview& overview) {
  const std::vector<double>& sorted = overview.durations;
  const std::size_t count = overview.sessions.size();
  const auto allowed = static_cast<std::size_t>(overview.record.sessions.back().atATime);
  std::string text =
      figure("Ran for", runningText(overview), count > 1 ? "in " + quantity(count, "session") : "");
  if (!sorted.empty()) {
    text += figure("Median duration", durationText(quantile(sorted, 0.5)),
                   "90 % within " + durationText(quantile(sorted, 0.9)));
  }
  text += figure("At a time", withoutLineEnd("%.1f", overview.atATime()),
                 "on average, of " + std::to_string(allowed));
  text += figure("CPU time", durationText(overview.cpu), "");
  text +=
      figure("Peak memory", sizeText(overview.peakMemory),
             overview.peakAttempt ? "in " + attemptTaskText(overview, *overview.peakAttempt) : "");
  text += figure("Lost", lostText(overview),
                 "in " + quantity(overview.lostAttempts, "attempt") + " without success");
  return "<dl class=\"figures\">\n" + text + "</dl>\n";
}

std::string top(const Overview& overview) {
  return "<header>\n" + element("p", "batch", "Batch " + markup(visible(overview.record.id))) +
         "\n" + element("h1", markup(jobName(overview))) + "\n" +
         element("p", "state",
                 element("strong", markup(headline(overview))) + " <span>" +
                     markup(stateText(overview)) + "</span>") +
         "\n" + resultBar(overview) + figures(overview) + "</header>\n";
}

// --- Failures

std::string logMarkup(const std::string& path, const LogEnd& end) {
  if (path.empty()) return "";
  std::string text = element("p", "log", "Log: " + markup(pathText(path)));
  if (!end.note.empty()) return text + element("p", "log", markup(end.note));
  std::string lines;
  for (const std::string& line : end.lines) lines += markup(line) + "\n";
  return lines.empty() ? text : text + element("pre", lines);
}

std::string caution(const Overview& overview) {
  const std::string text = cautionText(overview);
  return text.empty() ? "" : element("p", "note", "Caution: " + markup(text) + ".") + "\n";
}

std::string fullDisk(const Overview& overview) {
  const std::string text = fullDiskText(overview);
  return text.empty() ? "" : element("p", "note", markup(text) + ".") + "\n";
}

std::string failureRow(const Overview& overview, std::size_t attempt, const LogEnd& end) {
  const Attempt& recorded = overview.record.attempts[attempt];
  std::string text = "<tr><th scope=\"row\">" + std::to_string(recorded.task);
  if (recorded.number > 1) {
    text += element("span", "more", " attempt " + std::to_string(recorded.number));
  }
  text += "</th>" + element("td", "end", markup(endText(overview, attempt)));
  text += element(
      "td", recorded.process == 0 ? "" : "after " + durationText(overview.attempts[attempt].wall));
  const std::string command = commandText(recorded.words, longestCommand);
  return text + "<td>" + (command.empty() ? "" : element("code", markup(command))) +
         logMarkup(recorded.log, end) + "</td></tr>\n";
}

// The table of the failures from `first` on, at most up to `end`; sets `*shown` to the first that
// is not in it.
std::string failureTable(const Overview& overview, std::size_t first, std::size_t end,
                         std::size_t* shown) {
  const std::vector<std::size_t> attempts = attemptsOfFailures(overview, first, end);
  const std::vector<LogEnd> logs = readLogEnds(overview.record, attempts, shownLogLines);
  std::string rows;
  std::size_t i = 0;
  for (; i < attempts.size() && rows.size() < mostFailureBytes; ++i) {
    rows += failureRow(overview, attempts[i], logs[i]);
  }
  *shown = first + i;
  return "<table class=\"failures\">\n" +
         tableHead({"Task", "End", "Duration", "Command and end of the log"}) +
         element("tbody", "\n" + rows) + "</table>\n";
}

// With many failures, most are folded, so that the charts are not far away.
std::string failures(const Overview& overview) {
  const std::size_t count = overview.failures.size();
  if (count == 0) return "";
  const std::size_t open = std::min(count, openFailures);
  std::size_t shown = 0;
  std::string text = failureTable(overview, 0, open, &shown);
  if (count > open) {
    const std::string more = failureTable(overview, open, std::min(count, mostFailures), &shown);
    text += "<details>" + element("summary", quantity(shown - open, "more failure")) + "\n" + more +
            "</details>\n";
  }
  if (shown < count) {
    text += element("p", "note", quantity(count - shown, "failure") + " not shown.") + "\n";
  }
  return section("Failures", text);
}

// --- Charts

std::string axisLabels(const TimeAxis& axis) {
  std::string labels;
  for (const Tick& tick : ticksOf(axis)) {
    // Must not reach beyond the page.
    labels += std::string("<span") + (tick.place > 0.95 ? " class=\"last\"" : "") +
              attribute("style", withoutLineEnd("left:%.2f%%", tick.place * 100)) + ">" +
              markup(tick.label) + "</span>";
  }
  return R"(<div class="axis" aria-hidden="true">)" + labels + "</div>\n";
}

std::string looksKeys(const Overview& overview) {
  std::string keys = key(Look::fine, "succeeded") + key(Look::failed, "failed") +
                     key(Look::stopped, "interrupted or cut off");
  if (overview.state == BatchState::running) keys += key(Look::open, "running");
  return element("ul", "keys", keys) + "\n";
}

// What the dashed lines in the charts mean.
std::string resumedText(const Overview& overview, const TimeAxis& axis) {
  if (axis.times.size() < 2) return "";
  std::string text =
      "The time axis leaves out the pauses between sessions; a dashed line is where "
      "the batch was resumed.";
  if (axis.first > 0) {
    text += " Only the last " + std::to_string(axis.times.size()) + " of " +
            std::to_string(overview.sessions.size()) + " sessions are shown.";
  }
  return element("p", "note", text) + "\n";
}

std::string timeline(const Overview& overview, const TimeAxis& axis) {
  bool isSummed = false;
  const std::string chart = timelineChart(overview, axis, &isSummed);
  const std::string rows = element(
      "p", "note",
      isSummed ? "Each row is a place for tasks to run in. The time is cut into parts, in which "
                 "failures are as high as their share."
               : "Each row is a place for tasks to run in, each bar an attempt.");
  return section("When tasks ran", looksKeys(overview) + chart + axisLabels(axis) + rows + "\n" +
                                       resumedText(overview, axis));
}

std::string load(const Overview& overview, const TimeAxis& axis) {
  double greatest = 0;
  const std::string chart = loadChart(overview, axis, &greatest);
  const std::string text =
      withoutLineEnd("The full height is %.0f; the average is %.1f.", greatest, overview.atATime());
  return section("Tasks at a time", chart + axisLabels(axis) + element("p", "note", text) + "\n");
}

std::string charts(const Overview& overview) {
  if (overview.attempts.empty()) return "";
  const TimeAxis axis = timeAxis(overview);
  return patternDefinitions() + timeline(overview, axis) + load(overview, axis);
}

// --- Durations

std::string quantiles(const std::vector<double>& sorted) {
  const struct {
    const char* name;
    double share;
  } rows[] = {{"Shortest", 0}, {"Median", 0.5}, {"90 %", 0.9}, {"99 %", 0.99}, {"Longest", 1}};
  std::string text;
  for (const auto& row : rows)
    text += figure(row.name, durationText(quantile(sorted, row.share)), "");
  return "<dl class=\"quantiles\">\n" + text + "</dl>\n";
}

std::string bucketRows(const std::vector<double>& sorted) {
  const std::size_t most = std::clamp<std::size_t>(sorted.size(), 2, mostBuckets);
  const std::vector<Bucket> buckets = histogram(sorted, most);
  std::size_t greatest = 1;
  for (const Bucket& bucket : buckets) greatest = std::max(greatest, bucket.count);
  std::string rows;
  for (const Bucket& bucket : buckets) {
    const double share = static_cast<double>(bucket.count) / static_cast<double>(greatest);
    rows += "<tr><th scope=\"row\">" + durationText(bucket.from) + " to " +
            durationText(bucket.to) + "</th><td>" + std::to_string(bucket.count) +
            "</td><td class=\"wide\">" + (bucket.count == 0 ? "" : barChart(share, Look::fine)) +
            "</td></tr>\n";
  }
  return rows;
}

std::string durations(const Overview& overview) {
  if (overview.durations.empty()) return "";
  return section("How long attempts took",
                 quantiles(overview.durations) + "<table class=\"bars\">\n" +
                     tableHead({"Duration", "Attempts", "Share"}) +
                     element("tbody", "\n" + bucketRows(overview.durations)) + "</table>\n");
}

std::string slowest(const Overview& overview) {
  if (overview.slowest.empty()) return "";
  const double longest = std::max(overview.attempts[overview.slowest.front()].wall, 1e-9);
  std::string rows;
  for (const std::size_t attempt : overview.slowest) {
    const AttemptState& state = overview.attempts[attempt];
    rows += "<tr><th scope=\"row\">" + attemptTaskText(overview, attempt) + "</th>" +
            element("td", durationText(state.wall)) + "<td class=\"wide\">" +
            barChart(state.wall / longest, lookOf(state.standing)) + "</td>" +
            element("td", markup(endText(overview, attempt))) + "</tr>\n";
  }
  return section("Slowest attempts", "<table class=\"bars\">\n" +
                                         tableHead({"Task", "Took", "Compared", "End"}) +
                                         element("tbody", "\n" + rows) + "</table>\n");
}

// --- Sessions

std::string sessionRow(const Overview& overview, std::size_t number) {
  const Session& session = overview.record.sessions[number];
  return "<tr><th scope=\"row\">" + std::to_string(number + 1) + "</th>" +
         element("td", markup(timeText(overview.sessions[number].begin))) +
         element("td", sessionLengthText(overview, number)) +
         element("td", markup(sessionEndText(overview, number))) +
         element("td", element("code", markup(sessionCommand(session, longestCommand)))) +
         element("td", markup(shortened(visible(session.process.host), 100))) +
         element("td", markup(shortened(visible(session.toolVersion), 40))) + "</tr>\n";
}

std::string sessions(const Overview& overview) {
  const std::size_t count = overview.sessions.size();
  const std::size_t first = count > mostSessions ? count - mostSessions : 0;
  std::string rows;
  for (std::size_t i = first; i < count; ++i) rows += sessionRow(overview, i);
  const Session& last = overview.record.sessions.back();
  std::string text =
      "<table class=\"sessions\">\n" +
      tableHead({"Session", "Began", "Ran for", "End", "Command", "Host", "Version"}) +
      element("tbody", "\n" + rows) + "</table>\n";
  if (first > 0) {
    text += element("p", "note", quantity(first, "earlier session") + " not shown.") + "\n";
  }
  text += element("p", "note", "Job: " + element("code", markup(pathText(last.job)))) + "\n";
  text += element("p", "note", "Folder: " + element("code", markup(pathText(last.folder)))) + "\n";
  return section("Sessions", text);
}

}  // namespace

std::string reportPage(const Overview& overview) {
  std::string page(head);
  page += element("title", markup(jobName(overview) + ": " + headline(overview))) + "\n";
  page += element("style", "\n" + std::string(pageStyle)) + "\n</head>\n<body>\n<main>\n";
  page += top(overview) + caution(overview) + fullDisk(overview) + failures(overview) +
          charts(overview) + durations(overview);
  page += slowest(overview) + sessions(overview);
  page += "</main>\n" +
          element("footer", "Made by runlet-job report, " + markup(timeText(overview.now)));
  return page + "\n</body>\n</html>\n";
}

}  // namespace runlet_tool
