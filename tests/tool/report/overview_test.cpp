// What a report says about a batch, computed from its record.

#include "tool/report/overview.h"

#include <gtest/gtest.h>

#include <cstring>

#include "batch_record.h"

namespace runlet_tool {
namespace {

using runlet_test::batchBegin;
using runlet_test::endedAttempt;
using runlet_test::finishedSession;

const TaskEnd failed = {Ending::failed, 3, ""};

Overview overview(Record record, bool isRunning = false) {
  record.id = "20261122-211530-3f2a";
  return overviewOf(std::move(record), isRunning, batchBegin + 1000, 3);
}

// "succeeded 1-2, waiting 3"
std::string tasksText(const Overview& all) {
  std::string text;
  for (std::size_t i = 0; i < standingCount; ++i) {
    const auto standing = static_cast<Standing>(i);
    if (all.tasksWith(standing).count() == 0) continue;
    if (!text.empty()) text += ", ";
    text += standingKey(standing);
    text += " " + all.tasksWith(standing).text(",");
  }
  return text;
}

// The same attempt, of another session.
Attempt inSession(std::size_t session, std::int32_t number, Attempt attempt) {
  attempt.session = session;
  attempt.number = number;
  return attempt;
}

Attempt openAttempt(std::int32_t task, double begin) {
  Attempt attempt = endedAttempt(task, begin, 0);
  attempt.end.reset();
  attempt.cpu = 0;
  return attempt;
}

TEST(Overview, CountsTheLatestAttemptOfEachTask) {
  Record record;
  record.sessions = {finishedSession(0, 50, 9), finishedSession(100, 130, 9)};
  record.attempts = {
      endedAttempt(1, 1, 5),
      endedAttempt(2, 1, 5, failed),
      endedAttempt(3, 2, 5, failed),
      endedAttempt(4, 2, 5, {Ending::killed, 9, ""}),
      endedAttempt(5, 2, 5, {Ending::timedOut, 0, ""}),
      endedAttempt(6, 2, 5, {Ending::interrupted, 0, ""}),
      endedAttempt(7, 2, 0, {Ending::other, 0, "cannot open log"}),
      openAttempt(8, 40),
      inSession(0, 2, endedAttempt(2, 20, 5)),
      inSession(1, 2, endedAttempt(3, 100, 5, failed)),
  };
  const Overview all = overview(record);
  EXPECT_EQ(tasksText(all),
            "succeeded 1-2, failed 3, killed 4, timed-out 5, interrupted 6, not-started 9, "
            "other 7, cut-off 8");
  EXPECT_EQ(all.failures, (std::vector<std::size_t>{2, 3, 4, 6}));
  EXPECT_EQ(all.tasks[2].attempt, 9U);
  EXPECT_EQ(all.tasks[8].attempt, std::nullopt);
}

// The job got a task before its first one, so that all others have other numbers now, and the last
// one of these changed.
TEST(Overview, CountsAnAttemptForTheTaskThatRunsTheSame) {
  Record record;
  record.sessions = {finishedSession(0, 50, 3), finishedSession(100, 130, 4)};
  std::vector<TaskIdentity>& now = record.sessions[1].identities;
  now = {TaskIdentity(), now[0], now[1], now[3]};
  now[0].fill(77);
  record.attempts = {endedAttempt(1, 1, 5), endedAttempt(2, 1, 5, failed), endedAttempt(3, 2, 5),
                     inSession(1, 1, endedAttempt(1, 100, 5, {Ending::killed, 9, ""}))};
  const Overview all = overview(record);
  EXPECT_EQ(tasksText(all), "succeeded 2, failed 3, killed 1, not-started 4");
  EXPECT_EQ(all.tasks[1].attempt, 0U);
  EXPECT_EQ(all.tasks[2].attempt, 1U);
}

// Tasks that run the same have an attempt each.
TEST(Overview, CountsAnAttemptForOneTaskOnly) {
  Record record;
  record.sessions = {finishedSession(0, 50, 2), finishedSession(100, 130, 4)};
  for (Session& session : record.sessions) {
    for (TaskIdentity& identity : session.identities) identity.fill(1);
  }
  record.sessions[1].tasks = {3, 4, 5, 6};
  record.attempts = {endedAttempt(1, 1, 5), endedAttempt(2, 1, 5, failed)};
  EXPECT_EQ(tasksText(overview(record)), "succeeded 3, failed 4, not-started 5-6");
}

TEST(Overview, KnowsWhetherTheBatchRuns) {
  Record record;
  record.sessions = {finishedSession(0, 50, 3)};
  record.attempts = {endedAttempt(1, 1, 5), openAttempt(2, 30)};
  const struct {
    bool isEnded;
    bool isRunning;
    const char* stopReason;
    const char* state;
    const char* tasks;
    double length;  // of the session
    double wall;    // of the second attempt
  } rows[] = {
      {true, true, "", "finished", "succeeded 1, not-started 3, cut-off 2", 50, 20},
      {true, false, "no\033", "ended early (no\\x1b)", "succeeded 1, not-started 3, cut-off 2", 50,
       20},
      {false, true, "", "running on farm04 as process 4711", "succeeded 1, running 2, waiting 3",
       1000, 970},
      {false, false, "", "killed", "succeeded 1, not-started 3, cut-off 2", 30, 0},
  };
  for (const auto& row : rows) {
    if (!row.isEnded) record.sessions[0].end.reset();
    record.sessions[0].stopReason = row.stopReason;
    const Overview all = overview(record, row.isRunning);
    EXPECT_EQ(stateText(all), row.state);
    EXPECT_EQ(tasksText(all), row.tasks) << row.state;
    EXPECT_EQ(all.running, row.length) << row.state;
    EXPECT_EQ(all.attempts[1].wall, row.wall) << row.state;
  }
}

// A session that did not record its end lasted at least to the last event in it.
TEST(Overview, EstimatesWhenASessionWasKilled) {
  Record record;
  record.sessions = {finishedSession(0, 50, 3), finishedSession(100, 130, 3)};
  record.sessions[0].end.reset();
  record.attempts = {endedAttempt(1, 1, 5), openAttempt(2, 3)};
  const Overview all = overview(record);
  EXPECT_EQ(all.sessions[0].end, batchBegin + 6);
  EXPECT_EQ(all.attempts[1].wall, 3);
  EXPECT_EQ(sessionEndText(all, 0), "killed");
  EXPECT_EQ(sessionEndText(all, 1), "finished");
  EXPECT_EQ(endText(all, 1), "cut off");
  EXPECT_EQ(sessionLengthText(all, 0), "at least 6 s");
  EXPECT_EQ(sessionLengthText(all, 1), "30 s");
  EXPECT_EQ(runningText(all), "at least 36 s");
  EXPECT_EQ(lostText(all), "at least 3 s");
  record.sessions[0].end = batchBegin + 6;
  record.attempts.pop_back();
  EXPECT_EQ(runningText(overview(record)), "36 s");
  EXPECT_EQ(lostText(overview(record)), "0 s");
}

// They may outlive the run.
TEST(Overview, CountsTheTimeOfLivingTasksUpToNow) {
  Record record;
  record.sessions = {finishedSession(0, 50, 2)};
  record.sessions[0].end.reset();
  record.attempts = {openAttempt(1, 3), openAttempt(2, 4)};
  record.attempts[0].isAlive = true;
  const Overview all = overview(record);
  EXPECT_EQ(stateText(all), "killed, but 1 task is still running");
  EXPECT_EQ(all.attempts[0].wall, 997);
  EXPECT_EQ(all.attempts[1].wall, 0);
  record.attempts[1].isAlive = true;
  EXPECT_EQ(stateText(overview(record)), "killed, but 2 tasks are still running");
}

// The number that people look for in the job.
TEST(Overview, NamesTheTaskThatAnAttemptCountsFor) {
  Record record;
  record.sessions = {finishedSession(0, 50, 2), finishedSession(100, 130, 3)};
  std::vector<TaskIdentity>& now = record.sessions[1].identities;
  now = {now[2], record.sessions[0].identities[1], record.sessions[0].identities[0]};
  record.attempts = {endedAttempt(1, 1, 5, failed), endedAttempt(2, 1, 5, failed)};
  record.attempts.push_back(endedAttempt(2, 7, 5, failed));
  record.attempts[2].number = 2;
  const Overview all = overview(record);
  EXPECT_EQ(tasksText(all), "failed 2-3, not-started 1");
  EXPECT_EQ(attemptTaskText(all, 0), "task 3 (then task 1)");
  EXPECT_EQ(attemptTaskText(all, 2), "task 2, attempt 2");
}

TEST(Overview, AddsUpWhatAttemptsTook) {
  Record record;
  record.sessions = {finishedSession(0, 10, 5)};
  record.attempts = {endedAttempt(1, 0, 6), endedAttempt(2, 0, 4, failed),
                     endedAttempt(3, 4, 5, {Ending::interrupted, 0, ""}), endedAttempt(4, 6, 3)};
  Attempt none = endedAttempt(5, 9, 0, {Ending::other, 0, "cannot open log"});
  none.process = 0;
  record.attempts.push_back(none);
  const Overview all = overview(record);
  EXPECT_EQ(all.running, 10);
  EXPECT_EQ(all.wall, 18);
  EXPECT_EQ(all.atATime(), 1.8);
  EXPECT_EQ(all.cpu, 9);
  EXPECT_EQ(all.peakMemory, 6 << 20);
  EXPECT_EQ(all.peakAttempt, 0U);
  EXPECT_EQ(all.lostAttempts, 3U);
  EXPECT_EQ(all.lost, 9);
  EXPECT_EQ(all.durations, (std::vector<double>{3, 4, 5, 6}));
  EXPECT_EQ(all.slowest, (std::vector<std::size_t>{0, 2, 1}));
  EXPECT_EQ(all.slots, 2U);
  EXPECT_EQ(all.attempts[3].slot, 0U);
}

// The clock was set back: nothing has a negative length.
TEST(Overview, TakesTimesInAnyOrder) {
  Record record;
  record.sessions = {finishedSession(100, 50, 2)};
  record.attempts = {endedAttempt(1, 60, -5)};
  record.attempts[0].wall = 2;
  const Overview all = overview(record);
  EXPECT_EQ(all.running, 0);
  EXPECT_EQ(all.atATime(), 0);
  EXPECT_EQ(all.attempts[0].span.length(), 0);
  EXPECT_EQ(all.attempts[0].wall, 2);
}

TEST(Overview, ShortensListsOfNumbers) {
  TaskNumbers numbers;
  for (std::int32_t task = 1; task < 19; task += 2) numbers.add(task);
  EXPECT_EQ(numbersText(numbers), "1, 3, 5, 7, 9, 11, 13, 15, 17");
  for (std::int32_t task = 19; task < 99; task += 2) numbers.add(task);
  EXPECT_EQ(numbersText(numbers), "1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, ...");
}

}  // namespace
}  // namespace runlet_tool
