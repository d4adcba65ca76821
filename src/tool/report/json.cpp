#include "tool/report/json.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tool/report/statistics.h"
#include "tool/text/characters.h"
#include "tool/text/json.h"

namespace runlet_tool {
namespace {

constexpr int version = 1;

template <typename Value>
Json orNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}

Json sessionJson(const Overview& overview, std::size_t number) {
  const Session& session = overview.record.sessions[number];
  const bool inBytes = !areUtf8(session.options) || !areUtf8(session.expected) ||
                       !areUtf8({session.stopReason, session.toolVersion, session.verb, session.job,
                                 session.appPath, session.folder, session.process.host});
  const JsonStrings string(inBytes);
  Json row;
  row["begin"] = session.begin;
  row["end"] = orNull(session.end);
  row["seconds"] = overview.sessions[number].length();
  row["stopReason"] = string.orNull(!session.stopReason.empty(), session.stopReason);
  row["tool"] = string(session.toolVersion);
  row["verb"] = string(session.verb);
  row["options"] = string.list(session.options);
  row["job"] = string(session.job);
  row["application"] = string(session.appPath);
  row["expect"] = string.list(session.expected);
  row["folder"] = string(session.folder);
  row["uid"] = session.uid;
  row["gid"] = session.gid;
  row["host"] = string(session.process.host);
  row["pid"] = session.process.process;
  row["atATime"] = session.atATime;
  row["timeLimit"] = session.timeLimit;
  row["bytes"] = inBytes;
  return row;
}

// The exit code or the signal; null for all other ends.
Json numberOf(const Attempt& attempt, Ending ending) {
  return attempt.end && attempt.result.ending == ending ? Json(attempt.result.number) : Json();
}

// `countsFor` is the task whose standing is that of the attempt.
Json attemptJson(const Overview& overview, std::size_t number,
                 std::optional<std::int32_t> countsFor) {
  const Attempt& attempt = overview.record.attempts[number];
  const AttemptState& state = overview.attempts[number];
  const bool inBytes = !areUtf8(attempt.words) || !areUtf8({attempt.log, attempt.result.word});
  const JsonStrings string(inBytes);
  Json row;
  row["task"] = attempt.task;
  row["attempt"] = attempt.number;
  row["session"] = attempt.session + 1;
  row["countsFor"] = orNull(countsFor);
  row["argv"] = string.list(attempt.words);
  row["log"] = string.orNull(!attempt.log.empty(), attempt.log);
  row["begin"] = attempt.begin;
  row["end"] = orNull(attempt.end);
  row["result"] = standingKey(state.standing);
  row["code"] = numberOf(attempt, Ending::failed);
  row["signal"] = numberOf(attempt, Ending::killed);
  row["reason"] = string.orNull(!attempt.result.word.empty(), attempt.result.word);
  row["wall"] = state.wall;
  row["cpu"] = attempt.cpu;
  row["peakMemory"] = attempt.peakMemory;
  row["diskFull"] = attempt.isDiskFull;
  row["slot"] = state.slot + 1;
  row["bytes"] = inBytes;
  return row;
}

Json durationsJson(const std::vector<double>& sorted) {
  if (sorted.empty()) return {};
  Json row;
  row["min"] = sorted.front();
  row["median"] = quantile(sorted, 0.5);
  row["p90"] = quantile(sorted, 0.9);
  row["p99"] = quantile(sorted, 0.99);
  row["max"] = sorted.back();
  return row;
}

Json totalsJson(const Overview& overview) {
  Json results;
  for (std::size_t i = 0; i < standingCount; ++i) {
    results[standingKey(static_cast<Standing>(i))] = overview.tasksByStanding[i].count();
  }
  Json row;
  row["tasks"] = overview.tasks.size();
  row["results"] = results;
  row["attempts"] = overview.attempts.size();
  row["seconds"] = overview.running;
  row["wall"] = overview.wall;
  row["cpu"] = overview.cpu;
  row["peakMemory"] = overview.peakMemory;
  row["atATime"] = overview.atATime();
  row["lostAttempts"] = overview.lostAttempts;
  row["lostSeconds"] = overview.lost;
  row["durations"] = durationsJson(overview.durations);
  return row;
}

// For each attempt, the task that it counts for.
std::vector<std::optional<std::int32_t>> tasksOfAttempts(const Overview& overview) {
  std::vector<std::optional<std::int32_t>> tasks(overview.attempts.size());
  for (const TaskState& task : overview.tasks) {
    if (task.attempt) tasks[*task.attempt] = task.task;
  }
  return tasks;
}

}  // namespace

std::string reportJson(const Overview& overview) {
  Json head;
  head["format"] = "runlet-job report";
  head["version"] = version;
  head["id"] = overview.record.id;
  const std::string caution = cautionText(overview);
  head["caution"] = JsonStrings(false).orNull(!caution.empty(), caution);
  head["state"] = stateKey(overview.state);
  std::string text = asciiText(head);
  text.pop_back();  // the closing brace, since the rest follows
  text += ", \"sessions\": [";
  for (std::size_t i = 0; i < overview.sessions.size(); ++i) {
    text += (i == 0 ? "\n " : ",\n ") + asciiText(sessionJson(overview, i));
  }
  text += "\n], \"attempts\": [";
  const std::vector<std::optional<std::int32_t>> tasks = tasksOfAttempts(overview);
  for (std::size_t i = 0; i < overview.attempts.size(); ++i) {
    text += (i == 0 ? "\n " : ",\n ") + asciiText(attemptJson(overview, i, tasks[i]));
  }
  return text + "\n], \"totals\": " + asciiText(totalsJson(overview)) + "}\n";
}

}  // namespace runlet_tool
