// Records of batches that tests make up.
#pragma once

#include <cstdint>
#include <string>

#include "tool/record/record.h"

namespace runlet_test {

// A finished session of `run` with the tasks 1 to `tasks`, each with an identity of its own, two at
// a time. `begin` and `end` are in seconds since the batch began.
runlet_tool::Session finishedSession(double begin, double end, std::int32_t tasks);

// The first attempt of the task, in the first session, from `begin` on, in seconds since the batch
// began; it took `wall` seconds, and CPU time and memory in proportion. Its program is /bin/render,
// and it has no log.
runlet_tool::Attempt endedAttempt(std::int32_t task, double begin, double wall,
                                  const runlet_tool::TaskEnd& result = {
                                      runlet_tool::Ending::succeeded, 0, ""});

// When these batches began, in seconds since 1970: 2026-11-22 21:15:30 UTC.
inline constexpr double batchBegin = 1795382130;

// Writes the record to a new file.
void writeRecord(const runlet_tool::Record& record, const std::string& path);

}  // namespace runlet_test
