// Which tasks of a batch have still to succeed, also after its job has changed.

#include "tool/record/remaining.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "temp_folder.h"
#include "tool/record/digest.h"
#include "xml/limits.h"

namespace runlet_tool {
namespace {

// Every letter is what a task runs.
std::vector<TaskIdentity> job(const std::string& letters) {
  std::vector<TaskIdentity> identities(letters.size());
  for (std::size_t i = 0; i < letters.size(); ++i) {
    identities[i].fill(static_cast<unsigned char>(letters[i]));
  }
  return identities;
}

using Numbers = std::vector<std::int32_t>;

// A session of the job with these letters: of all its tasks, or of some.
Session session(const std::string& letters, const Numbers& tasks = {}) {
  Session result;
  result.isWhole = tasks.empty();
  for (std::size_t i = 0; i < letters.size(); ++i) {
    const auto number = static_cast<std::int32_t>(i + 1);
    result.tasks.push_back(tasks.empty() ? number : tasks[i]);
  }
  result.identities = job(letters);
  return result;
}

enum class How { succeeded, failed, cutOff };

Attempt attempt(std::size_t session, std::int32_t task, std::int32_t number, How how) {
  Attempt result;
  result.session = session;
  result.task = task;
  result.number = number;
  if (how == How::cutOff) return result;
  result.end = 1;
  result.result = {how == How::failed ? Ending::failed : Ending::succeeded, 0, ""};
  return result;
}

// A batch of tasks a to d: b failed, c was cut off, d has not begun.
Record halfDone() {
  Record record;
  record.sessions = {session("abcd")};
  record.attempts = {attempt(0, 1, 1, How::succeeded), attempt(0, 2, 1, How::failed),
                     attempt(0, 3, 1, How::cutOff)};
  return record;
}

TEST(Remaining, IsWhatHasNotSucceeded) {
  struct Row {
    const char* jobNow;
    Numbers tasks;
    Numbers toRun;
    Numbers changed;
    std::size_t gone;
  };
  const Row rows[] = {
      {"abcd", {1, 2, 3, 4}, {2, 3, 4}, {}, 0},
      {"abcx", {1, 2, 3, 4}, {2, 3, 4}, {4}, 1},
      {"xbcd", {1, 2, 3, 4}, {1, 2, 3, 4}, {1}, 1},
      {"dcba", {1, 2, 3, 4}, {1, 2, 3}, {}, 0},          // only in another order
      {"abcde", {1, 2, 3, 4, 5}, {2, 3, 4, 5}, {5}, 0},  // longer
      {"bcd", {1, 2, 3}, {1, 2, 3}, {}, 1},              // shorter: the task that succeeded is gone
      {"aacd", {1, 2, 3, 4}, {2, 3, 4}, {2}, 1},         // one success counts for one task
      {"", {}, {}, {}, 4},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.jobNow);
    const Remaining remaining = remainingOf(halfDone(), job(row.jobNow));
    EXPECT_EQ(remaining.tasks, row.tasks);
    EXPECT_EQ(remaining.toRun, row.toRun);
    EXPECT_EQ(remaining.changed, row.changed);
    EXPECT_EQ(remaining.gone, row.gone);
  }
}

TEST(Remaining, IsOfTheSelectedTasks) {
  Record record;
  record.sessions = {session("ce", {3, 5})};
  record.attempts = {attempt(0, 5, 1, How::succeeded)};
  const Remaining same = remainingOf(record, job("abcdef"));
  EXPECT_EQ(same.tasks, (Numbers{3, 5}));
  EXPECT_EQ(same.toRun, (Numbers{3}));
  EXPECT_EQ(same.changed, Numbers{});
  const Remaining shorter = remainingOf(record, job("abcd"));
  EXPECT_EQ(shorter.tasks, (Numbers{3}));
  EXPECT_EQ(shorter.gone, 1);
}

// A task is known by what it runs, wherever it is now.
TEST(Remaining, IsOfTheSelectedTasksWhereverTheyAre) {
  struct Row {
    const char* jobNow;
    Numbers tasks;
    Numbers toRun;
    Numbers changed;
    std::size_t gone;
  };
  // Tasks 2 to 4 of "abbcb": b and c, of which the first b has succeeded.
  Record record;
  record.sessions = {session("bbc", {2, 3, 4})};
  record.attempts = {attempt(0, 2, 1, How::succeeded), attempt(0, 3, 1, How::failed)};
  const Row rows[] = {
      {"abbcb", {2, 3, 4}, {3, 4}, {}, 0},    // as many as before, with their numbers
      {"xabbcb", {3, 4, 5}, {4, 5}, {}, 0},   // the success counts for one of two that moved
      {"bbabbcb", {1, 2, 6}, {1, 6}, {}, 0},  // task 2 stays; task 1 is the next b
      {"axbcx", {2, 3, 4}, {2, 4}, {2}, 1},   // the success counts for the b that is left
      {"abbxb", {2, 3, 4}, {3, 4}, {4}, 1},   // the c was edited
      {"cbb", {1, 2, 3}, {1, 3}, {}, 0},
      {"cxx", {1, 2, 3}, {1, 2, 3}, {2, 3}, 2},
      {"a", {}, {}, {}, 3},
      {"", {}, {}, {}, 3},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.jobNow);
    const Remaining remaining = remainingOf(record, job(row.jobNow));
    EXPECT_EQ(remaining.tasks, row.tasks);
    EXPECT_EQ(remaining.toRun, row.toRun);
    EXPECT_EQ(remaining.changed, row.changed);
    EXPECT_EQ(remaining.gone, row.gone);
  }
}

// Of tasks that run the same, the one that has failed is run again.
TEST(Remaining, LeavesSuccessesToTheirTasks) {
  Record record;
  record.sessions = {session("aaa")};
  record.attempts = {attempt(0, 1, 1, How::failed), attempt(0, 2, 1, How::succeeded)};
  EXPECT_EQ(remainingOf(record, job("aaa")).toRun, (Numbers{1, 3}));
  EXPECT_EQ(remainingOf(record, job("xaa")).toRun, (Numbers{1, 3}));
  EXPECT_EQ(remainingOf(record, job("axa")).toRun, (Numbers{2, 3}));
}

// A success of any session counts, whatever the number of the task was then.
TEST(Remaining, LooksAtAllSessions) {
  Record record = halfDone();
  record.sessions.push_back(session("bcde"));
  record.attempts.push_back(attempt(1, 2, 2, How::succeeded));  // c
  record.attempts.push_back(attempt(1, 4, 1, How::failed));     // e
  const Remaining remaining = remainingOf(record, job("bcde"));
  EXPECT_EQ(remaining.toRun, (Numbers{1, 3, 4}));
  EXPECT_EQ(remaining.changed, Numbers{});
}

TEST(Failed, AreTasksWhoseLastAttemptDidNotSucceed) {
  Record record = halfDone();
  EXPECT_EQ(failedOf(record, job("abcd")).tasks, (Numbers{2, 3}));
  EXPECT_EQ(failedOf(record, job("dcba")).tasks, (Numbers{2, 3}));
  EXPECT_EQ(failedOf(record, job("axyz")).tasks, Numbers{});
  EXPECT_EQ(failedOf(record, job("axyz")).gone, 2);
  EXPECT_EQ(failedOf(record, job("abxy")).gone, 1);
  record.attempts.push_back(attempt(0, 2, 2, How::succeeded));
  EXPECT_EQ(failedOf(record, job("abcd")).tasks, (Numbers{3}));
}

// What failed before the job changed is neither forgotten nor taken for what has its number now.
TEST(Failed, AreKnownByWhatTheyRun) {
  Record reordered;
  reordered.sessions = {session("abcd"), session("cdab")};
  reordered.attempts = {attempt(0, 1, 1, How::succeeded), attempt(0, 2, 1, How::succeeded),
                        attempt(0, 3, 1, How::failed), attempt(0, 4, 1, How::succeeded),
                        attempt(1, 1, 2, How::succeeded)};
  EXPECT_EQ(failedOf(reordered, job("cdab")).tasks, Numbers{});
  EXPECT_EQ(failedOf(reordered, job("abcd")).tasks, Numbers{});

  Record longer;
  longer.sessions = {session("abc"), session("xzabc")};
  longer.attempts = {attempt(0, 1, 1, How::failed), attempt(0, 2, 1, How::cutOff),
                     attempt(0, 3, 1, How::succeeded), attempt(1, 1, 2, How::succeeded),
                     attempt(1, 2, 2, How::failed)};
  EXPECT_EQ(failedOf(longer, job("xzabc")).tasks, (Numbers{2, 3, 4}));
  EXPECT_EQ(failedOf(longer, job("abc")).tasks, (Numbers{1, 2}));
}

TEST(Failed, AreCountedAmongTasksThatRunTheSame) {
  struct Row {
    std::vector<Attempt> attempts;  // of tasks that all run a
    Numbers failed;                 // of three
    Numbers failedOfOne;            // if the job has only one of them now
  };
  const Row rows[] = {
      {{attempt(0, 2, 1, How::failed)}, {2}, {1}},
      {{attempt(0, 2, 1, How::failed), attempt(0, 2, 2, How::failed)}, {2}, {1}},
      {{attempt(0, 2, 1, How::failed), attempt(0, 2, 2, How::succeeded)}, {}, {}},
      {{attempt(0, 1, 1, How::succeeded), attempt(0, 3, 1, How::cutOff)}, {3}, {1}},
      {{attempt(0, 1, 1, How::failed), attempt(0, 3, 1, How::failed)}, {1, 3}, {1}},
      {{}, {}, {}},
  };
  for (const Row& row : rows) {
    Record record;
    record.sessions = {session("aaa")};
    record.attempts = row.attempts;
    EXPECT_EQ(failedOf(record, job("aaa")).tasks, row.failed);
    EXPECT_EQ(failedOf(record, job("a")).tasks, row.failedOfOne);
  }
  // A second task that runs the same as one that succeeded elsewhere in the end.
  Record moved;
  moved.sessions = {session("a"), session("xa")};
  moved.attempts = {attempt(0, 1, 1, How::failed), attempt(1, 2, 1, How::succeeded)};
  EXPECT_EQ(failedOf(moved, job("xaa")).tasks, Numbers{});
}

// So that the report never contradicts what is resumed.
TEST(CountingAttempts, AreSuccessesFirst) {
  using Positions = std::vector<std::optional<std::size_t>>;
  // What X ran as task 1 failed, and then succeeded as task 2; now it is task 1 again.
  Record back;
  back.sessions = {session("xy"), session("yx"), session("xyz")};
  back.attempts = {attempt(0, 1, 1, How::failed), attempt(0, 2, 1, How::succeeded),
                   attempt(1, 2, 2, How::succeeded), attempt(2, 3, 1, How::cutOff)};
  EXPECT_EQ(countingAttempts(back), (Positions{2, 1, 3}));
  EXPECT_EQ(remainingOf(back, job("xyz")).toRun, (Numbers{3}));

  // Of two that run the same, 1 failed and 2 succeeded; now they are tasks 3 and 4.
  Record equal;
  equal.sessions = {session("aa"), session("nmaa")};
  equal.attempts = {attempt(0, 1, 1, How::failed), attempt(0, 2, 1, How::succeeded),
                    attempt(1, 1, 2, How::succeeded), attempt(1, 4, 1, How::succeeded)};
  EXPECT_EQ(countingAttempts(equal), (Positions{2, {}, 1, 3}));
  equal.attempts.pop_back();
  EXPECT_EQ(countingAttempts(equal), (Positions{2, {}, 1, 0}));
  EXPECT_EQ(remainingOf(equal, job("nmaa")).toRun, (Numbers{2, 4}));

  // The last attempt of a task counts, and each for one task.
  Record again;
  again.sessions = {session("abc")};
  again.attempts = {attempt(0, 1, 1, How::failed), attempt(0, 1, 2, How::cutOff)};
  EXPECT_EQ(countingAttempts(again), (Positions{1, {}, {}}));
}

TEST(LastAttempts, AreTheGreatestNumbers) {
  Record record = halfDone();
  record.attempts.push_back(attempt(0, 2, 2, How::failed));
  const std::map<std::int32_t, std::int32_t> expected = {{1, 1}, {2, 2}, {3, 1}};
  EXPECT_EQ(lastAttempts(record), expected);
}

TEST(Identity, DependsOnEverythingThatATaskRuns) {
  struct Row {
    std::vector<std::string> words;
    const char* folder;
    std::int32_t uid;
    std::int32_t gid;
  };
  const Row rows[] = {
      {{"a", "b"}, "/", 1, 2}, {{"a b"}, "/", 1, 2},    {{"a", "b", ""}, "/", 1, 2},
      {{"ab"}, "/", 1, 2},     {{"b"}, "/a", 1, 2},     {{"a", "b"}, "/x", 1, 2},
      {{"a", "b"}, "/", 2, 1}, {{"a", "b"}, "/", 1, 3}, {{}, "/", 1, 2},
  };
  std::map<TaskIdentity, std::size_t> seen;
  for (const Row& row : rows) {
    std::vector<std::string> copies = row.words;
    std::vector<char*> words;
    for (std::string& copy : copies) words.push_back(copy.data());
    const TaskIdentity identity = taskIdentity(words, row.folder, row.uid, row.gid);
    EXPECT_EQ(identity, taskIdentity(words, row.folder, row.uid, row.gid));
    EXPECT_TRUE(seen.insert({identity, seen.size()}).second) << seen.size();
  }
}

TEST(DigestOfAFile, IsThatOfItsContentUpToTheLimitForJobs) {
  const runlet_test::TempFolder folder;
  for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 200000U}) {
    const std::string text(size, 'x');
    EXPECT_EQ(digestOfFile(folder.write("file", text)), digestOf(text)) << size;
  }
  // With a hole, which takes no space on the disk.
  const off_t tooMuch = static_cast<off_t>(runlet::maxFileSize) + 1;
  ASSERT_EQ(truncate(folder.file("file").c_str(), tooMuch), 0);
  EXPECT_EQ(digestOfFile(folder.file("file")), "");
  EXPECT_EQ(digestOfFile(folder.file("none")), "");
  EXPECT_EQ(digestOfFile(folder.path()), "");
}

}  // namespace
}  // namespace runlet_tool
