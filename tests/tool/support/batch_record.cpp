#include "batch_record.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tool/record/write.h"
#include "tool/system/output_place.h"

namespace runlet_test {

using runlet_tool::Attempt;
using runlet_tool::Record;
using runlet_tool::Session;

Session finishedSession(double begin, double end, std::int32_t tasks) {
  Session session;
  session.begin = batchBegin + begin;
  session.end = batchBegin + end;
  session.toolVersion = "1.2.0";
  session.verb = "run";
  session.options = {"harbour.xml", "--jobs", "2"};
  session.job = "/srv/harbour.xml";
  session.digest = std::string(64, 'a');
  session.folder = "/srv";
  session.uid = 1000;
  session.gid = 100;
  session.process.host = "farm04";
  session.process.process = 4711;
  session.atATime = 2;
  for (std::int32_t task = 1; task <= tasks; ++task) {
    session.tasks.push_back(task);
    std::memcpy(session.identities.emplace_back().data(), &task, sizeof task);
  }
  return session;
}

Attempt endedAttempt(std::int32_t task, double begin, double wall,
                     const runlet_tool::TaskEnd& result) {
  Attempt attempt;
  attempt.task = task;
  attempt.words = {"/bin/render", std::to_string(task)};
  attempt.begin = batchBegin + begin;
  attempt.process = 5000 + task;
  attempt.end = attempt.begin + wall;
  attempt.result = result;
  attempt.wall = wall;
  attempt.cpu = wall / 2;
  attempt.peakMemory = static_cast<std::int64_t>(wall * 1024 * 1024);
  return attempt;
}

void writeRecord(const Record& record, const std::string& path) {
  runlet_tool::RecordWriter writer(record.id);
  runlet_tool::OutputPlace place;
  EXPECT_EQ(runlet_tool::findOutputPlace(path, &place), "");
  int errors = writer.create(place);
  for (std::size_t i = 0; i < record.sessions.size(); ++i) {
    errors += writer.beginSession(record.sessions[i]);
    for (const Attempt& attempt : record.attempts) {
      if (attempt.session != i) continue;
      if (attempt.process != 0) errors += writer.beginAttempt(attempt);
      if (attempt.end) errors += writer.endAttempt(attempt);
    }
    if (record.sessions[i].end) errors += writer.endSession(record.sessions[i]);
  }
  EXPECT_EQ(errors, 0);
}

}  // namespace runlet_test
