#include "tool/report/trace.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "tool/text/characters.h"
#include "tool/text/json.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

constexpr int process = 1;  // the batch as a whole

Json event(const char* phase, const std::string& name) {
  return {{"name", name}, {"ph", phase}, {"pid", process}};
}

Json nameOf(const char* what, std::size_t thread, const std::string& name) {
  Json row = event("M", what);
  row["tid"] = thread;
  row["args"] = {{"name", name}};
  return row;
}

// The earliest begin, even if the clock was set back between two sessions.
RecordTime beginOf(const Overview& overview) {
  RecordTime begin = overview.sessions.front().begin;
  for (const Span& session : overview.sessions) begin = std::min(begin, session.begin);
  for (const AttemptState& attempt : overview.attempts) begin = std::min(begin, attempt.span.begin);
  return begin;
}

std::int64_t microseconds(double seconds) {
  return std::llround(seconds * 1e6);
}

std::string commandOf(const Attempt& attempt) {
  std::string line;
  for (const std::string& word : attempt.words) appendShellWord(word, &line);
  return line;
}

Json attemptEvent(const Overview& overview, std::size_t number, RecordTime begin) {
  const Attempt& attempt = overview.record.attempts[number];
  const AttemptState& state = overview.attempts[number];
  const std::int64_t from = microseconds(state.span.begin - begin);
  Json row = event("X", attemptTaskText(overview, number));
  row["cat"] = standingKey(state.standing);
  row["ts"] = from;
  row["dur"] = microseconds(state.span.end - begin) - from;
  row["tid"] = state.slot + 1;
  row["args"] = {{"task", attempt.task},
                 {"attempt", attempt.number},
                 {"session", attempt.session + 1},
                 {"end", endText(overview, number)},
                 {"cpu", attempt.cpu},
                 {"peakMemory", attempt.peakMemory},
                 {"command", commandOf(attempt)},
                 {"log", visible(attempt.log)}};
  return row;
}

Json sessionMark(const Overview& overview, std::size_t number, RecordTime begin) {
  Json row = event("i", "session " + std::to_string(number + 1));
  row["ts"] = microseconds(overview.sessions[number].begin - begin);
  row["tid"] = 1;
  row["s"] = "g";  // shown across all threads
  return row;
}

}  // namespace

std::string traceJson(const Overview& overview) {
  const RecordTime begin = beginOf(overview);
  const std::string& job = overview.record.sessions.back().job;
  std::string text = "{\"displayTimeUnit\": \"ms\", \"traceEvents\": [\n";
  text += asciiText(nameOf("process_name", 0, visible(job)));
  const auto add = [&](const Json& row) { text += ",\n" + asciiText(row); };
  for (std::size_t slot = 1; slot <= overview.slots; ++slot) {
    add(nameOf("thread_name", slot, "slot " + std::to_string(slot)));
  }
  for (std::size_t i = 1; i < overview.sessions.size(); ++i) add(sessionMark(overview, i, begin));
  for (std::size_t i = 0; i < overview.attempts.size(); ++i) add(attemptEvent(overview, i, begin));
  return text + "\n]}\n";
}

}  // namespace runlet_tool
