// runlet-job on large jobs: the output of expand and check for all tasks, compared with the model's
// result for the lists that the job file was generated from.
//
// RUNLET_JOBS_SEED is the random seed, RUNLET_LARGE_JOBS the number of random jobs. If it is
// smaller than usual, fewer of the other jobs are tried, too.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "large_job.h"
#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Json = nlohmann::json;
using Strings = std::vector<std::string>;
using runlet_model::LargeJob;
using runlet_model::LargeShape;
using runlet_model::Random;
using runlet_model::TextKind;

constexpr std::uint64_t usualJobs = 30;
constexpr char program[] = "./task";

// Larger ones are not checked as JSON, which is slow.
constexpr std::size_t longestForJson = (64 << 10) + 1;

// Where two texts first differ, with excerpts of both; empty if they are equal.
std::string difference(const std::string& expected, const std::string& actual) {
  if (expected == actual) return "";
  const auto at = static_cast<std::size_t>(
      std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first -
      expected.begin());
  const std::size_t from = at < 60 ? 0 : at - 60;
  return "expected, at byte " + std::to_string(at) + ": " + expected.substr(from, 160) +
         "\nin fact: " + actual.substr(from, 160) + "\n";
}

// With an explicit number of tasks: otherwise those that would take too long are skipped.
constexpr char allTasks[] = "1000000000";

class LargeJobTool : public testing::Test {
 protected:
  Random randomFor(std::uint64_t number) const {
    const char* seed = std::getenv("RUNLET_JOBS_SEED");
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    return runlet_model::startOf(name, seed == nullptr ? 1 : std::strtoull(seed, nullptr, 10),
                                 number);
  }

  // Of the random jobs.
  static std::uint64_t jobCount() {
    const char* const count = std::getenv("RUNLET_LARGE_JOBS");
    return count == nullptr ? usualJobs : std::strtoull(count, nullptr, 10);
  }

  // With fewer random jobs, also fewer of the others.
  static std::size_t stride() {
    return jobCount() < usualJobs ? 5 : 1;
  }

  static void setFolderAndOwner(LargeJob* job) {
    job->folder = "/srv/clouds";
    job->uid = 1234;
    job->gid = 99;
  }

  ProcessResult run(const Strings& words) {
    ++runs_;
    ProcessOptions options = tool(words);
    options.patience = std::chrono::seconds(300);
    return runProcess(options);
  }

  // Asserts the line of every task.
  void expectExpansions(const LargeJob& job, const std::string& pattern) {
    const std::string text = fileOf(job, pattern);
    folder_.write("job.xml", text);
    const ProcessResult result = run({"expand", jobFile_, "-n", allTasks});
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    std::string expected;
    for (std::size_t i = 0; i < job.lists.taskList.size(); ++i) {
      expected += "task " + std::to_string(i + 1) + "\n  Calling '" +
                  shown(lineOf(job, pattern, i)) + "' from '/srv/clouds'\n";
    }
    EXPECT_EQ(difference(expected, callingLines(result.output)), "");
    if (text.size() <= longestForJson) expectJson(job, pattern);
  }

  // Asserts that there are no errors, and for a clean job no findings.
  void expectChecked(const LargeJob& job, const std::string& pattern, bool isClean) {
    folder_.write("job.xml", fileOf(job, pattern));
    const ProcessResult result = run({"check", jobFile_});
    const std::size_t count = job.lists.taskList.size();
    const std::string start =
        jobFile_ + ": " + std::to_string(count) + (count == 1 ? " task, " : " tasks, ");
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0") << result.output.substr(0, 2000);
    if (isClean) {
      EXPECT_EQ(result.output.substr(0, 2000), start + "no findings\n");
    } else {
      EXPECT_NE(result.output.find(start), std::string::npos) << result.output.substr(0, 2000);
    }
  }

  TempFolder folder_;
  const std::string jobFile_ = folder_.file("job.xml");
  std::size_t runs_ = 0;

 private:
  static std::string lineOf(const LargeJob& job, const std::string& pattern, std::size_t index) {
    return fillIn(job.lists, pattern, static_cast<std::int32_t>(index)).text;
  }

  // As text output shows it: of the characters in these jobs only the TAB is escaped.
  static std::string shown(const std::string& line) {
    std::string text;
    for (const char c : line) text += c == '\t' ? "\\t" : std::string(1, c);
    return text;
  }

  // Only the first line of every task and the adapter's line.
  static std::string callingLines(const std::string& output) {
    std::string lines;
    for (std::size_t at = 0; at < output.size();) {
      const std::size_t end = std::min(output.find('\n', at), output.size() - 1) + 1;
      if (output.compare(at, 5, "task ") == 0 || output.compare(at, 11, "  Calling '") == 0) {
        lines.append(output, at, end - at);
      }
      at = end;
    }
    return lines;
  }

  void expectJson(const LargeJob& job, const std::string& pattern) {
    const ProcessResult result = run({"expand", "--json", jobFile_, "-n", allTasks});
    const Json report = Json::parse(result.output, nullptr, false);
    ASSERT_FALSE(report.is_discarded()) << result.output.substr(0, 500);
    const Json& tasks = report.at("tasks");
    ASSERT_EQ(tasks.size(), job.lists.taskList.size());
    for (std::size_t i = 0; i < tasks.size(); ++i) {
      const std::string line = lineOf(job, pattern, i);
      ASSERT_EQ(tasks[i].at("task"), i + 1);
      ASSERT_EQ(tasks[i].at("outcome"), "starts") << i;
      ASSERT_EQ(tasks[i].at("commandLine"), line) << i;
      ASSERT_EQ(tasks[i].at("argv").get<Strings>(), runlet_model::words(line)) << i;
    }
  }
};

// The last bytes of these lists were once lost.
TEST_F(LargeJobTool, ExpandsTheTaskRightAfterAPageBorder) {
  LargeJob job;
  job.lists.taskList.assign(500, std::string(55, 'x'));
  job.lists.taskList.insert(job.lists.taskList.begin(), std::string(624, 'F'));
  setFolderAndOwner(&job);
  expectExpansions(job, "./task %tp1");
  expectChecked(job, "./task %tp1", true);
}

// The lists grow by 16 bytes each time over a whole page.
TEST_F(LargeJobTool, ExpandsTheLastTaskWhereverItEnds) {
  for (std::size_t step = 0; step < 256 && !HasFailure(); step += stride()) {
    LargeJob job;
    job.lists.taskList = runlet_model::evenTexts(16 + 16 * step, 500);
    setFolderAndOwner(&job);
    folder_.write("job.xml", fileOf(job, "./task %tp1"));
    const ProcessResult result = run({"expand", jobFile_, "-s", "501"});
    const std::string line = "./task " + job.lists.taskList.back();
    EXPECT_EQ(result.output, "task 501\n  folder  /srv/clouds\n  Calling '" + line +
                                 "' from '/srv/clouds'\n  run     " + line + "\n");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0") << step;
  }
}

TEST_F(LargeJobTool, ChecksTheLastTaskWhereverItEnds) {
  for (std::size_t step = 0; step < 256 && !HasFailure(); step += stride()) {
    const std::size_t length = 16 + 16 * step;
    LargeJob job;
    job.lists.taskList = runlet_model::evenTexts(length, 500);
    setFolderAndOwner(&job);
    expectChecked(job, "./task %tp1", length < 2000);
  }
}

TEST_F(LargeJobTool, FindsNothingInCleanJobsAroundThresholds) {
  std::uint64_t number = 0;
  for (const std::size_t threshold : runlet_model::sizeThresholds) {
    for (const std::size_t size : {threshold - 1, threshold, threshold + 1}) {
      Random random = randomFor(number++);
      LargeShape shape;
      shape.fileSize = size;
      shape.tasks = TextKind::mixed;
      shape.parameters = size < (16 << 10) ? 5 : 20;
      shape.isClean = true;
      LargeJob job = makeLargeJob(&random, shape);
      setFolderAndOwner(&job);
      std::string pattern = "./task %tn \"%tp1\"";
      for (std::size_t i = 1; i <= shape.parameters; ++i) pattern += " %jp" + std::to_string(i);
      ASSERT_EQ(fileOf(job, pattern).size(), size);
      expectChecked(job, pattern, true);
      expectExpansions(job, pattern);
    }
  }
}

TEST_F(LargeJobTool, ExpandsAndChecksRandomJobs) {
  const std::uint64_t count = jobCount();
  for (std::uint64_t i = 0; i < count && !HasFailure(); ++i) {
    Random random = randomFor(i);
    LargeShape shape;
    shape.fileSize = runlet_model::anyFileSize(&random);
    shape.tasks = random.pick<TextKind>(
        {TextKind::brief, TextKind::mixed, TextKind::lengthy, TextKind::borders});
    shape.values = random.pick<TextKind>({TextKind::brief, TextKind::mixed, TextKind::borders});
    shape.parameters = random.below(random.chance(20) ? 500 : 20);
    shape.lastLength = 16 * random.below(8) + i % 16 + 1;
    LargeJob job = makeLargeJob(&random, shape);
    setFolderAndOwner(&job);
    const Strings patterns = patternsFor(job, program);
    // The last one uses the last parameters.
    const std::size_t more = 1 + patterns.size() / 6;
    for (std::size_t at = patterns.size() - 1; at < patterns.size(); at -= more) {
      expectExpansions(job, patterns[at]);
    }
    expectChecked(job, patterns.back(), false);
    EXPECT_FALSE(HasFailure()) << "job " << i;
  }
  EXPECT_GE(runs_, 3 * count);
}

}  // namespace
}  // namespace runlet_test
