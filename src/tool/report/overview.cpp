#include "tool/report/overview.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "tool/record/read.h"
#include "tool/record/remaining.h"
#include "tool/record/store.h"
#include "tool/text/characters.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

struct StandingText {
  const char* name;
  const char* key;
};

// In the order of Standing.
constexpr StandingText standingTexts[standingCount] = {
    {"succeeded", "succeeded"}, {"failed", "failed"},           {"killed", "killed"},
    {"timed out", "timed-out"}, {"interrupted", "interrupted"}, {"not started", "not-started"},
    {"other", "other"},         {"cut off", "cut-off"},         {"running", "running"},
    {"waiting", "waiting"},
};
static_assert(static_cast<int>(Standing::other) == static_cast<int>(Ending::other));

BatchState stateOf(const Record& record, bool isRunning) {
  if (record.sessions.back().end) return BatchState::finished;
  return isRunning ? BatchState::running : BatchState::killed;
}

// A session without an end lasted at least until the last event of its attempts.
void setSessions(Overview* overview) {
  for (const Session& session : overview->record.sessions) {
    const RecordTime end = session.end.value_or(session.begin);
    overview->sessions.push_back({session.begin, std::max(session.begin, end)});
  }
  Span& last = overview->sessions.back();
  if (overview->state == BatchState::running) last.end = std::max(last.begin, overview->now);
  for (const Attempt& attempt : overview->record.attempts) {
    Span& span = overview->sessions[attempt.session];
    if (overview->record.sessions[attempt.session].end) continue;
    span.end = std::max(span.end, attempt.end.value_or(attempt.begin));
  }
  for (const Span& span : overview->sessions) overview->running += span.length();
}

Standing standingOf(const Overview& overview, const Attempt& attempt) {
  if (attempt.end) return static_cast<Standing>(attempt.result.ending);
  if (attempt.isAlive) return Standing::running;
  const bool isOfLast = attempt.session + 1 == overview.sessions.size();
  return isOfLast && overview.state == BatchState::running ? Standing::running : Standing::cutOff;
}

AttemptState attemptState(const Overview& overview, const Attempt& attempt) {
  AttemptState state;
  state.standing = standingOf(overview, attempt);
  const RecordTime known = attempt.isAlive ? overview.now : overview.sessions[attempt.session].end;
  state.span = {attempt.begin, std::max(attempt.begin, attempt.end.value_or(known))};
  state.wall = attempt.end ? attempt.wall : state.span.length();
  return state;
}

// Slots are assigned for each session: at its end nothing runs.
void setSlots(Overview* overview) {
  std::vector<std::vector<std::size_t>> members(overview->sessions.size());
  for (std::size_t i = 0; i < overview->attempts.size(); ++i) {
    members[overview->record.attempts[i].session].push_back(i);
  }
  for (const std::vector<std::size_t>& attempts : members) {
    std::vector<Span> spans;
    spans.reserve(attempts.size());
    for (const std::size_t i : attempts) spans.push_back(overview->attempts[i].span);
    const std::vector<std::size_t> slots = assignSlots(spans);
    for (std::size_t i = 0; i < attempts.size(); ++i) {
      overview->attempts[attempts[i]].slot = slots[i];
      overview->slots = std::max(overview->slots, slots[i] + 1);
    }
  }
}

void setTasks(Overview* overview) {
  // The job may have changed between two sessions: what has still to be done decides.
  const std::vector<std::optional<std::size_t>> attempts = countingAttempts(overview->record);
  for (std::size_t i = 0; i < attempts.size(); ++i) {
    const std::int32_t task = overview->record.sessions.back().tasks[i];
    overview->tasks.push_back({task, Standing::notStarted, attempts[i]});
    if (attempts[i]) overview->attempts[*attempts[i]].countsFor = task;
  }
  const bool isRunning = overview->state == BatchState::running;
  for (std::size_t i = 0; i < overview->tasks.size(); ++i) {
    TaskState& state = overview->tasks[i];
    state.standing = isRunning ? Standing::waiting : Standing::notStarted;
    if (state.attempt) state.standing = overview->attempts[*state.attempt].standing;
    if (isFailure(state.standing)) overview->failures.push_back(i);
    overview->tasksByStanding[static_cast<std::size_t>(state.standing)].add(state.task);
    const bool isDiskFull = state.attempt && overview->record.attempts[*state.attempt].isDiskFull;
    if (isDiskFull) overview->onFullDisk.add(state.task);
  }
}

bool hasDuration(const Attempt& attempt) {
  return attempt.end && attempt.process != 0;
}

void setDurations(std::size_t mostSlowest, Overview* overview) {
  for (std::size_t i = 0; i < overview->attempts.size(); ++i) {
    if (!hasDuration(overview->record.attempts[i])) continue;
    overview->durations.push_back(overview->attempts[i].wall);
    overview->slowest.push_back(i);
  }
  std::sort(overview->durations.begin(), overview->durations.end());
  std::stable_sort(overview->slowest.begin(), overview->slowest.end(),
                   [&](std::size_t a, std::size_t b) {
                     return overview->attempts[a].wall > overview->attempts[b].wall;
                   });
  overview->slowest.resize(std::min(overview->slowest.size(), mostSlowest));
}

bool isLost(Standing standing) {
  return isFailure(standing) || standing == Standing::interrupted || standing == Standing::cutOff;
}

void addUp(Overview* overview) {
  for (std::size_t i = 0; i < overview->attempts.size(); ++i) {
    const Attempt& attempt = overview->record.attempts[i];
    const AttemptState& state = overview->attempts[i];
    overview->wall += state.wall;
    overview->cpu += attempt.cpu;
    if (attempt.peakMemory > overview->peakMemory) {
      overview->peakMemory = attempt.peakMemory;
      overview->peakAttempt = i;
    }
    if (!isLost(state.standing)) continue;
    ++overview->lostAttempts;
    overview->lost += state.wall;
  }
}

bool wasKilled(const Overview& overview, std::size_t session) {
  const bool isLast = session + 1 == overview.sessions.size();
  const bool isRunning = isLast && overview.state == BatchState::running;
  return !overview.record.sessions[session].end && !isRunning;
}

std::string lengthText(double seconds, bool isKnown) {
  return (isKnown ? "" : "at least ") + durationText(seconds);
}

// About tasks of a run that was killed.
std::string livingText(const Overview& overview) {
  const auto count = static_cast<std::size_t>(overview.tasksWith(Standing::running).count());
  if (count == 0) return "";
  return ", but " + quantity(count, "task") + (count == 1 ? " is" : " are") + " still running";
}

}  // namespace

const char* standingName(Standing standing) {
  return standingTexts[static_cast<std::size_t>(standing)].name;
}

const char* stateKey(BatchState state) {
  constexpr const char* keys[] = {"running", "finished", "killed"};
  return keys[static_cast<std::size_t>(state)];
}

const char* standingKey(Standing standing) {
  return standingTexts[static_cast<std::size_t>(standing)].key;
}

bool isFailure(Standing standing) {
  return standing == Standing::failed || standing == Standing::killed ||
         standing == Standing::timedOut || standing == Standing::other;
}

Overview overviewOf(Record record, bool isRunning, RecordTime now, std::size_t mostSlowest) {
  Overview overview;
  overview.record = std::move(record);
  overview.now = now;
  overview.state = stateOf(overview.record, isRunning);
  setSessions(&overview);
  for (const Attempt& attempt : overview.record.attempts) {
    overview.attempts.push_back(attemptState(overview, attempt));
  }
  setSlots(&overview);
  setTasks(&overview);
  setDurations(mostSlowest, &overview);
  addUp(&overview);
  return overview;
}

std::string readOverview(const std::string& path, std::size_t mostSlowest, Overview* overview) {
  Record record;
  std::string reason = readRecord(path, &record);
  if (!reason.empty()) return reason;
  for (Attempt& attempt : record.attempts) attempt.isAlive = isRunningHere(record, attempt);
  const bool isRunning = mayBeRunning(record.sessions.back().process);
  *overview = overviewOf(std::move(record), isRunning, presentTime(), mostSlowest);
  return "";
}

std::vector<std::size_t> attemptsOfFailures(const Overview& overview, std::size_t first,
                                            std::size_t end) {
  std::vector<std::size_t> attempts;
  for (std::size_t i = first; i < end; ++i) {
    attempts.push_back(*overview.tasks[overview.failures[i]].attempt);
  }
  return attempts;
}

std::string stateText(const Overview& overview) {
  const Session& last = overview.record.sessions.back();
  switch (overview.state) {
    case BatchState::running:
      return "running on " + shortened(visible(last.process.host), 100) + " as process " +
             std::to_string(last.process.process);
    case BatchState::killed:
      return "killed" + livingText(overview);
    default:
      return sessionEndText(overview, overview.sessions.size() - 1);
  }
}

std::string sessionEndText(const Overview& overview, std::size_t session) {
  const Session& recorded = overview.record.sessions[session];
  if (!recorded.end) return wasKilled(overview, session) ? "killed" : "running";
  if (recorded.stopReason.empty()) return "finished";
  return "ended early (" + shortened(visible(recorded.stopReason), 200) + ")";
}

std::string sessionLengthText(const Overview& overview, std::size_t session) {
  return lengthText(overview.sessions[session].length(), !wasKilled(overview, session));
}

std::string runningText(const Overview& overview) {
  bool isKnown = true;
  for (std::size_t i = 0; i < overview.sessions.size(); ++i) {
    if (wasKilled(overview, i)) isKnown = false;
  }
  return lengthText(overview.running, isKnown);
}

std::string lostText(const Overview& overview) {
  const bool isKnown = std::none_of(
      overview.attempts.begin(), overview.attempts.end(),
      [](const AttemptState& attempt) { return attempt.standing == Standing::cutOff; });
  return lengthText(overview.lost, isKnown);
}

std::string attemptTaskText(const Overview& overview, std::size_t attempt) {
  const Attempt& recorded = overview.record.attempts[attempt];
  const std::int32_t task = overview.attempts[attempt].countsFor.value_or(recorded.task);
  std::string text = "task " + std::to_string(task);
  if (task != recorded.task) text += " (then task " + std::to_string(recorded.task) + ")";
  if (recorded.number > 1) text += ", attempt " + std::to_string(recorded.number);
  return text;
}

std::string endText(const Overview& overview, std::size_t attempt) {
  const Standing standing = overview.attempts[attempt].standing;
  if (!overview.record.attempts[attempt].end) return standingName(standing);
  return shortened(visible(describe(overview.record.attempts[attempt].result)), 200);
}

std::string fullDiskText(const Overview& overview) {
  const auto count = static_cast<std::size_t>(overview.onFullDisk.count());
  if (count == 0) return "";
  return "The disk was full: the logs of " + quantity(count, "task") + " (" +
         numbersText(overview.onFullDisk) + ") may be incomplete";
}

std::string cautionText(const Overview& overview) {
  const std::string& distrust = overview.record.distrust;
  return distrust.empty() ? "" : distrust + ": what it says may be wrong";
}

std::string numbersText(const TaskNumbers& numbers) {
  constexpr std::size_t most = 40;
  const std::string text = numbers.text();
  return text.size() <= most ? text : text.substr(0, text.rfind(' ', most) + 1) + "...";
}

std::string sessionCommand(const Session& session, std::size_t most) {
  std::vector<std::string> words = {"runlet-job", session.verb};
  words.insert(words.end(), session.options.begin(), session.options.end());
  return commandText(words, most);
}

}  // namespace runlet_tool
