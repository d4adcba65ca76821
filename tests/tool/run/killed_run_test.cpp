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
#include <optional>
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

  // Starts or resumes the batch. `time` is how long until it is killed; none = never. True if it
  // has ended before.
  bool runFor(std::optional<std::chrono::microseconds> time) {
    std::vector<std::string> arguments = {"run", folder_.file("job.xml"), "--jobs", "3"};
    const bool isNew = modeOf(record_) == -1;
    // Of a run that was killed before it had made its record, as its message would say.
    for (const std::string& claim : claimsOf(record_)) {
      if (isNew) unlink(claim.c_str());
    }
    arguments.insert(arguments.end(), {isNew ? "--record" : "--resume", record_});
    Process run(tool(arguments));
    if (time) {
      std::this_thread::sleep_for(*time);
      kill(run.pid(), SIGKILL);
    }
    const ProcessResult result = run.finish();
    if (describeStatus(result.waitStatus) == "signal 9") return false;
    if (describeStatus(result.waitStatus) == "exit 0") return true;
    // Only a batch that was killed before it had recorded its tasks cannot be resumed, and it has
    // run none of them.
    EXPECT_TRUE(result.error.find(": its run ended before any task was started: ") !=
                    std::string::npos ||
                result.error.find(": not a record of runlet-job") != std::string::npos)
        << result.error;
    EXPECT_EQ(modeOf(folder_.file("done")), -1);
    unlink(record_.c_str());
    return HasFailure();
  }

  void removeTraces() {
    unlink(record_.c_str());
    unlink(folder_.file("done").c_str());
  }

  // How long a batch takes that nobody kills.
  std::chrono::microseconds usualTime() {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(runFor(std::nullopt));
    const auto time = std::chrono::steady_clock::now() - begin;
    removeTraces();
    return std::chrono::duration_cast<std::chrono::microseconds>(time);
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
  std::uniform_int_distribution<long> microseconds(0, usualTime().count());
  unsigned killed = 0;
  while (killed < setting("RUNLET_KILLS", usualKills) && !HasFailure()) {
    while (!runFor(std::chrono::microseconds(microseconds(random)))) ++killed;
    expectComplete();
    removeTraces();
  }
}

}  // namespace
}  // namespace runlet_test
