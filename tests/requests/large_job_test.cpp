// The built adapter on large jobs: what the tasks receive is compared, byte for byte, with the
// model's result for the lists that the job file was generated from.
//
// RUNLET_LARGE_JOBS is the number of jobs for each random test, RUNLET_REQUEST_SEED the random
// seed, and RUNLET_LARGE_JOB_CASE selects a single job. Each test stops after
// RUNLET_LARGE_JOB_FAILURES failures (default 3). With RUNLET_LARGE_JOB_SHOW each test shows how
// much it tried.

#include "large_job.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <set>

#include "process.h"
#include "programs.h"
#include "temp_folder.h"
#include "visible.h"

namespace runlet_model {
namespace {

using runlet_test::ProcessOptions;
using runlet_test::ProcessResult;
using runlet_test::TempFolder;
using runlet_test::visible;
using Strings = std::vector<std::string>;

constexpr std::uint64_t usualJobs = RUNLET_USUAL_LARGE_JOBS;  // of each random test
constexpr std::uint64_t usualSeed = 1;
constexpr std::uint64_t usualFailures = 3;
constexpr char program[] = "./task";

// Jobs up to this size are read back completely; larger ones at the end and in samples.
constexpr std::size_t wholeTasks = 4000;
constexpr std::size_t wholeFileSize = (128 << 10) + 1;

std::uint64_t setting(const char* name, std::uint64_t usual) {
  const char* text = std::getenv(name);
  return text == nullptr ? usual : std::strtoull(text, nullptr, 10);
}

// The values of -s and -n.
struct Range {
  std::size_t first;
  std::size_t count;
};

struct RequestOutcome {
  std::string output;  // with "PID" for the ids of the children
  std::string error;
  std::string status;
  std::string record;
};

// What a child writes for these arguments.
std::string recordOf(const Strings& arguments) {
  std::string record = std::to_string(arguments.size()) + '\0';
  for (const std::string& argument : arguments) record += argument + '\0';
  return record;
}

// The result of the request.
RequestOutcome predict(const LargeJob& job, const std::string& pattern, const Range& range) {
  RequestOutcome outcome;
  outcome.status = "exit 0";
  const std::size_t end = std::min(range.first - 1 + range.count, job.lists.taskList.size());
  for (std::size_t i = range.first - 1; i < end; ++i) {
    const Result line = fillIn(job.lists, pattern, static_cast<std::int32_t>(i));
    if (line.outcome != Outcome::done) {
      outcome.error = "Runlet adapter: Process fill-in for arguments failed.\n";
      outcome.status = "exit 255";
      return outcome;
    }
    outcome.output += "Calling '" + line.text + "' from '" + job.folder +
                      "'\n[ServerMessage]ProcessStarted processId=PID\n";
    outcome.record += recordOf(words(line.text));
  }
  return outcome;
}

std::string withoutIds(const std::string& text) {
  static const std::string before = "\n[ServerMessage]ProcessStarted processId=";
  std::string out;
  std::size_t at = 0;
  for (std::size_t found = 0; (found = text.find(before, at)) != std::string::npos;) {
    out.append(text, at, found + before.size() - at);
    at = found + before.size();
    const std::size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());
    if (end > at) out += "PID";
    at = end;
  }
  return out.append(text, at);
}

// Where two texts first differ, with excerpts of both; empty if they are equal.
std::string difference(const char* what, const std::string& expected, const std::string& actual) {
  if (expected == actual) return "";
  const auto at = static_cast<std::size_t>(
      std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first -
      expected.begin());
  const std::size_t from = at < 60 ? 0 : at - 60;
  std::string text = std::string("--- ") + what + ", which differs at byte " + std::to_string(at);
  text += "\n  expected (" + std::to_string(expected.size()) +
          " bytes): " + visible(expected.substr(from, 160));
  return text + "\n  in fact  (" + std::to_string(actual.size()) +
         " bytes): " + visible(actual.substr(from, 160)) + "\n";
}

class LargeJobTest : public testing::Test {
 protected:
  LargeJobTest() {
    if (symlink(runlet_test::argumentWriterPath.c_str(), folder_.file("task").c_str()) != 0)
      std::abort();
  }

  void TearDown() override {
    if (std::getenv("RUNLET_LARGE_JOB_SHOW") == nullptr) return;
    std::cout << requests_ << " requests, " << tasks_ << " tasks, " << failures_ << " failures\n";
  }

  // Random numbers for job `number` of this test.
  Random randomFor(std::uint64_t number) const {
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    return startOf(name, seed_, number);
  }

  // Makes it a job of the caller in the folder of the test.
  void setFolderAndOwner(LargeJob* job) const {
    job->folder = folder_.path();
    job->uid = geteuid();
    job->gid = getegid();
  }

  // A request for each of the ranges.
  void tryRequests(const LargeJob& job, const std::string& pattern,
                   const std::vector<Range>& ranges) {
    if (hasFailed()) return;
    text_ = fileOf(job, pattern);
    folder_.write("job.xml", text_);
    for (const Range& range : ranges) tryRange(job, pattern, range);
    for (std::size_t i = 0; i < job.lists.paramValues.size(); ++i) {
      const bool isRead = pattern.find("%jp" + std::to_string(i + 1) + "\"") != std::string::npos;
      if (isRead) remainders_.insert(job.lists.paramValues[i].size() % 16);
    }
  }

  // Every entry and parameter of a job that is not too long; of others the last ones, the first,
  // and some more.
  void readBack(const LargeJob& job, Random* random) {
    const std::size_t count = job.lists.taskList.size();
    const Strings patterns = patternsFor(job, program);
    const bool isWhole = count <= wholeTasks && job.fileSize <= wholeFileSize;
    std::vector<Range> ranges = samples(count, random);
    if (isWhole) ranges = {{1, count}, lastOf(count, 2)};
    tryRequests(job, patterns[0], ranges);
    for (std::size_t i = 1; i < patterns.size(); ++i) {
      const bool isSample = i > 2 && i + 8 < patterns.size() && text_.size() > wholeFileSize;
      if (isSample && !random->chance(5)) continue;
      tryRequests(job, patterns[i], {lastOf(count, 1), {1 + random->below(count), 2}});
    }
  }

  // The random tests: jobs of the shapes that `draw` returns.
  template <typename Draw>
  void tryJobs(const Draw& draw) {
    const bool isSingle = std::getenv("RUNLET_LARGE_JOB_CASE") != nullptr;
    const std::uint64_t first = setting("RUNLET_LARGE_JOB_CASE", 0);
    const std::uint64_t count = isSingle ? 1 : setting("RUNLET_LARGE_JOBS", usualJobs);
    for (std::uint64_t i = first; i < first + count && !hasFailed(); ++i) {
      Random random = randomFor(i);
      LargeShape shape = draw(&random);
      shape.lastLength = 16 * random.below(8) + i % 16 + 1;
      tryJob(shape, &random, i);
    }
    if (count < usualJobs) return;
    EXPECT_GE(requests_, 4 * usualJobs);
    EXPECT_EQ(remainders_.size(), 16U) << "lengths of the texts that were read, modulo 16";
  }

  void tryJob(const LargeShape& shape, Random* random, std::uint64_t number) {
    number_ = number;
    LargeJob job = makeLargeJob(random, shape);
    setFolderAndOwner(&job);
    readBack(job, random);
  }

  bool hasFailed() const {
    return failures_ >= setting("RUNLET_LARGE_JOB_FAILURES", usualFailures);
  }

  static Range lastOf(std::size_t taskCount, std::size_t count) {
    const std::size_t first = taskCount > count ? taskCount - count + 1 : 1;
    return {first, taskCount - first + 1};
  }

  TempFolder folder_;
  std::size_t requests_ = 0;
  std::optional<std::uint64_t> number_;  // of the job

 private:
  static std::vector<Range> samples(std::size_t count, Random* random) {
    return {
        lastOf(count, 100), {1, 5},       {1 + count / 2, 20}, {1 + random->below(count), 10},
        lastOf(count, 1),   {count, 100},
    };
  }

  void tryRange(const LargeJob& job, const std::string& pattern, const Range& range) {
    folder_.write("record", "");
    ProcessOptions options;
    options.arguments = {runlet_test::adapterPath,
                         "-o",
                         "NewTask",
                         "-j",
                         folder_.file("job.xml"),
                         "-s",
                         std::to_string(range.first),
                         "-n",
                         std::to_string(range.count)};
    options.environment = {{"RUNLET_RECORD", folder_.file("record")}};
    options.patience = std::chrono::seconds(300);
    const ProcessResult result = runProcess(options);
    compare(predict(job, pattern, range), result, options.arguments);
    ++requests_;
    noteTasks(job, range);
  }

  void compare(const RequestOutcome& expected, const ProcessResult& result,
               const Strings& arguments) {
    const std::string differences =
        difference("status", expected.status, runlet_test::describeStatus(result.waitStatus)) +
        difference("standard error", expected.error, result.error) +
        difference("arguments of the tasks", expected.record,
                   runlet_test::readFile(folder_.file("record"))) +
        difference("standard output", expected.output, withoutIds(result.output));
    if (differences.empty()) return;
    ++failures_;
    std::string command;
    for (const std::string& argument : arguments) command += " " + argument;
    ADD_FAILURE() << "RUNLET_REQUEST_SEED=" << seed_
                  << (number_ ? " RUNLET_LARGE_JOB_CASE=" + std::to_string(*number_) : "")
                  << command << "\n"
                  << differences << "--- a job file of " << text_.size() << " bytes, which begins\n"
                  << text_.substr(0, 600) << "\n";
  }

  void noteTasks(const LargeJob& job, const Range& range) {
    const std::size_t end = std::min(range.first - 1 + range.count, job.lists.taskList.size());
    for (std::size_t i = range.first - 1; i < end; ++i) {
      remainders_.insert(job.lists.taskList[i].size() % 16);
      ++tasks_;
    }
  }

  const std::uint64_t seed_ = setting("RUNLET_REQUEST_SEED", usualSeed);
  std::string text_;  // of the job file
  std::size_t tasks_ = 0;
  std::uint64_t failures_ = 0;
  std::set<std::size_t> remainders_;
};

class LargeJobEnd : public LargeJobTest {};

// The last bytes of these lists were once lost.
TEST_F(LargeJobEnd, RightAfterAPageBorderIsReadBack) {
  LargeJob job;
  job.lists.taskList.assign(500, std::string(55, 'x'));
  job.lists.taskList.insert(job.lists.taskList.begin(), std::string(624, 'F'));
  setFolderAndOwner(&job);
  tryRequests(job, "./task %tp1", {{500, 2}, {501, 1}});
}

TEST_F(LargeJobEnd, OfAllTasksAndParametersIsReadBack) {
  LargeJob job;
  job.lists.taskList = evenTexts(700, 300);
  job.lists.paramValues = evenTexts(700, 300);
  job.lists.paramNames.assign(301, "name");
  setFolderAndOwner(&job);
  tryRequests(job, "./task %tp1 %jp301 %jp300", {{300, 2}});
}

// Far too many for tools slower than the sanitizers.
class LargeRequestModel : public LargeJobTest {};

// The lists grow by 16 bytes each time over a whole page, so that their buffer ends once at each
// offset within a page.
TEST_F(LargeRequestModel, HoldsWhereverTheLastTaskEnds) {
  for (std::size_t step = 0; step < 256; ++step) {
    LargeJob job;
    job.lists.taskList = evenTexts(16 + 16 * step, 500);
    setFolderAndOwner(&job);
    tryRequests(job, "./task %tp1", {{500, 2}});
  }
  EXPECT_EQ(requests_, 256U);
}

TEST_F(LargeRequestModel, HoldsWhereverTheLastValueEnds) {
  for (std::size_t step = 0; step < 256; ++step) {
    LargeJob job;
    job.lists.taskList = {"task"};
    job.lists.paramValues = evenTexts(16 + 16 * step, 400);
    for (std::size_t i = 0; i <= 400; ++i) job.lists.paramNames.push_back(std::to_string(i));
    setFolderAndOwner(&job);
    tryRequests(job, "./task %tp1 %jp401 %jp400", {{1, 1}});
  }
  EXPECT_EQ(requests_, 256U);
}

// The last one takes each length modulo 16, and so each number of bytes in its last unit.
TEST_F(LargeRequestModel, HoldsForEveryLengthOfTheLastTask) {
  for (std::size_t length = 1; length <= 160; ++length) {
    LargeJob job;
    job.lists.taskList = evenTexts(16 + 16 * (length % 10), 600);
    job.lists.taskList.push_back(numberedText(602, length));
    setFolderAndOwner(&job);
    tryRequests(job, "./task \"%tp1\" %tn", {{601, 2}});
  }
  EXPECT_EQ(requests_, 160U);
}

TEST_F(LargeRequestModel, HoldsAroundThresholdsOfTheFileSize) {
  std::uint64_t number = 0;
  for (const std::size_t threshold : sizeThresholds) {
    for (const std::size_t size : {threshold - 1, threshold, threshold + 1}) {
      Random random = randomFor(number++);
      LargeShape shape;
      shape.fileSize = size;
      shape.tasks = TextKind::mixed;
      shape.parameters = size < (16 << 10) ? 5 : 20;
      LargeJob job = makeLargeJob(&random, shape);
      setFolderAndOwner(&job);
      ASSERT_EQ(fileOf(job, patternsFor(job, program)[0]).size(), size);
      readBack(job, &random);
    }
  }
  EXPECT_GE(requests_, 80U);
}

// Entries and values around every length at which behaviour changes, up to those that the C library
// allocates with mmap.
TEST_F(LargeRequestModel, HoldsAroundThresholdsOfTheTexts) {
  std::vector<std::size_t> thresholds = {15, 16, 32, 255, 1024, 2000, 3999};
  thresholds.insert(thresholds.end(), std::begin(sizeThresholds), std::end(sizeThresholds));
  for (const std::size_t threshold : thresholds) {
    LargeJob job;
    for (std::size_t length = threshold - 1; length <= threshold + 1; ++length) {
      job.lists.taskList.push_back(numberedText(length, length));
      job.lists.paramNames.push_back(numberedText(length, std::min<std::size_t>(length, 4097)));
      job.lists.paramValues.push_back(numberedText(length + 3, length));
    }
    setFolderAndOwner(&job);
    for (const std::string& pattern : patternsFor(job, program)) {
      tryRequests(job, pattern, {{1, 3}});
    }
  }
}

// The expansions grow from task to task, until one is a byte too long.
TEST_F(LargeRequestModel, HoldsAroundTheLimitOfAnExpansion) {
  LargeShape shape;
  shape.fileSize = 40 << 10;
  shape.tasks = TextKind::brief;
  shape.parameters = 2;
  Random random = randomFor(0);
  for (const std::size_t valueLength : {1999U, 2000U, 2001U}) {
    LargeJob job = makeLargeJob(&random, shape);
    job.lists.paramValues = {numberedText(1, valueLength), "-"};
    const std::size_t first = job.lists.taskList.size() + 1;
    for (std::size_t length = 1985; length <= 1994; ++length) {
      job.lists.taskList.push_back(numberedText(length, length));
    }
    setFolderAndOwner(&job);
    tryRequests(job, "./task %jp1 %tp1", {{first, 10}});
    tryRequests(job, "./task %tp1 %jp1", {{1, 2}});
    EXPECT_EQ(predict(job, "./task %jp1 %tp1", {first, 10}).status, "exit 255");
  }
}

TEST_F(LargeRequestModel, HoldsForManyBriefTasks) {
  tryJobs([](Random* random) {
    LargeShape shape;
    shape.fileSize = random->chance(15) ? 2 << 20 : anyFileSize(random);
    shape.parameters = random->below(10);
    return shape;
  });
}

TEST_F(LargeRequestModel, HoldsForLengthyTasks) {
  tryJobs([](Random* random) {
    LargeShape shape;
    shape.fileSize = anyFileSize(random);
    shape.tasks = random->chance(50) ? TextKind::lengthy : TextKind::borders;
    shape.values = TextKind::lengthy;
    shape.parameters = random->below(10);
    return shape;
  });
}

TEST_F(LargeRequestModel, HoldsForMixedTasks) {
  tryJobs([](Random* random) {
    LargeShape shape;
    shape.fileSize = anyFileSize(random);
    shape.tasks = TextKind::mixed;
    shape.values = TextKind::mixed;
    shape.parameters = random->below(60);
    return shape;
  });
}

TEST_F(LargeRequestModel, HoldsForManyParameters) {
  tryJobs([](Random* random) {
    LargeShape shape;
    shape.fileSize = 4 << 10;
    shape.tasks = TextKind::borders;
    shape.values = random->pick<TextKind>(
        {TextKind::brief, TextKind::mixed, TextKind::mixed, TextKind::borders});
    shape.maxTasks = 1 + random->below(40);
    shape.parameters = 40 + random->below(600);
    return shape;
  });
}

}  // namespace
}  // namespace runlet_model
