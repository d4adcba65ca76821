// Runs that are killed at random moments, and resumed until all tasks have succeeded.
//
//   RUNLET_KILLS=n      kills that many runs instead of the default
//   RUNLET_KILLS_SEED=n the random seed, default 1

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "adapter_test.h"
#include "tool/record/read.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

constexpr unsigned usualKills = 40;
constexpr int taskCount = 12;

unsigned setting(const char* name, unsigned usual) {
  const char* const text = std::getenv(name);
  return text == nullptr ? usual : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

// A job whose tasks each add a line with their number to a file.
class KilledRuns : public testing::Test {
 protected:
  KilledRuns() {
    Job job;
    job.arguments = "/bin/sh -c \"echo %tn >>done; exit 0\"";
    job.set("TaskTimeout", "30");
    job.tasks.assign(taskCount, "task");
    folder_.write("job.xml", job.text());
  }

  // Starts or resumes the batch, and kills it after that time. True if it has ended before.
  bool runFor(std::chrono::microseconds time) {
    std::vector<std::string> arguments = {"run", folder_.file("job.xml"), "--jobs", "3"};
    const bool isNew = modeOf(record_) == -1;
    arguments.insert(arguments.end(), {isNew ? "--record" : "--resume", record_});
    Process run(tool(arguments));
    std::this_thread::sleep_for(time);
    kill(run.pid(), SIGKILL);
    const ProcessResult result = run.finish();
    if (describeStatus(result.waitStatus) == "signal 9") return false;
    // Nothing can be resumed of a batch that was killed before it had a plan.
    const bool isFine = describeStatus(result.waitStatus) == "exit 0";
    const bool isCut = result.error.find(": incomplete: ") != std::string::npos ||
                       result.error.find(": not a record") != std::string::npos;
    EXPECT_TRUE(isFine || isCut) << result.error;
    if (isCut) unlink(record_.c_str());
    return isFine;
  }

  // How often each task has written its line.
  std::map<int, int> written() const {
    std::istringstream lines(readFile(folder_.file("done")));
    std::map<int, int> counts;
    for (int task = 0; lines >> task;) ++counts[task];
    return counts;
  }

  // Each task has succeeded once, and has written a line in each attempt that could end.
  void expectComplete() const {
    runlet_tool::Record record;
    ASSERT_EQ(runlet_tool::readRecord(record_, &record), "");
    std::map<int, int> successes;
    std::map<int, int> attempts;
    for (const runlet_tool::Attempt& attempt : record.attempts) {
      ++attempts[attempt.task];
      if (!attempt.end) continue;
      EXPECT_EQ(describe(attempt.result), "succeeded");
      ++successes[attempt.task];
    }
    const std::map<int, int> lines = written();
    for (int task = 1; task <= taskCount; ++task) {
      EXPECT_EQ(successes[task], 1) << task;
      ASSERT_EQ(lines.count(task), 1) << task;
      EXPECT_LE(lines.at(task), attempts[task]) << task;
    }
  }

  TempFolder folder_;
  const std::string record_ = folder_.file("record.jsonl");
};

TEST_F(KilledRuns, AreResumedWithoutLossOrRepetition) {
  std::mt19937 random(setting("RUNLET_KILLS_SEED", 1));
  std::uniform_int_distribution<int> microseconds(0, 60'000);
  unsigned killed = 0;
  while (killed < setting("RUNLET_KILLS", usualKills)) {
    unlink(record_.c_str());
    unlink(folder_.file("done").c_str());
    while (!runFor(std::chrono::microseconds(microseconds(random)))) ++killed;
    expectComplete();
    if (HasFailure()) break;
  }
}

}  // namespace
}  // namespace runlet_test
