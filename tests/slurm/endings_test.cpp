// How tasks end, as the engine sees it and as `submit --wait` tells it.

#include <unistd.h>

#include <filesystem>

#include "farm.h"

namespace runlet_test {
namespace {

// The last line of a summary says where the logs are.
std::string logsLine(const std::string& pattern) {
  return "Logs: " + pattern + "\n";
}

class Ending : public FarmTest {
 protected:
  // A program that nobody may execute
  const std::string plain_ = folder_.write("plain", "#!/bin/sh\n", 0644);
};

TEST_F(Ending, OfEveryKindIsSeenByTheEngineAndTold) {
  const std::string task = farmTask_;
  write(jobOf({task, task + " exit:3", task + " kill:9", task + " kill:11", "./missing -x", plain_,
               "/bin/sh -c \"exit 200\""}));
  const ProcessResult result = submit({"--wait"});
  EXPECT_EQ(result.error, "task 1: succeeded: " + task + "\ntask 2: failed with exit code 3: " +
                              task + " exit:3\ntask 3: killed by signal 9 (Killed): " + task +
                              " kill:9\ntask 4: killed by signal 11 (Segmentation fault): " + task +
                              " kill:11\ntask 5: failed with exit code 127: ./missing -x\n"
                              "task 6: failed with exit code 126: " +
                              plain_ +
                              "\ntask 7: failed with exit code 200: /bin/sh -c 'exit 200'\n"
                              "7 tasks: 1 succeeded, 4 failed (2, 5-7), 2 killed (3-4)\n" +
                              logsLine(folder_.file("job-*.log")));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");

  const Lines expected = {"",
                          "COMPLETED 0:0",
                          "FAILED 3:0",
                          "FAILED 0:9",
                          "FAILED 0:11",
                          "FAILED 127:0",
                          "FAILED 126:0",
                          "FAILED 200:0"};
  const std::map<int, Element> elements = elementsOf(linesOf(result.output)[0]);
  EXPECT_EQ(elements.size(), 7U);
  for (const auto& [index, element] : elements) {
    EXPECT_EQ(element.state + " " + element.exitCode, expected[static_cast<std::size_t>(index)])
        << index;
  }
}

TEST_F(Ending, WithoutTheProgramLeavesTheReasonInTheLog) {
  write(jobOf({"./missing -x", plain_ + " -y"}));
  const std::string id = submittedOne();
  awaitEnd(id);
  EXPECT_EQ(log("job-1.log"), calling("./missing -x", folder()) +
                                  "Runlet adapter: Cannot execute command:'./missing -x':"
                                  "No such file or directory\n");
  EXPECT_EQ(log("job-2.log"), calling(plain_ + " -y", folder()) +
                                  "Runlet adapter: Cannot execute command:'" + plain_ +
                                  " -y':Permission denied\n");
}

TEST_F(Ending, WithoutTheRunFolderIsNoneOfTheProgram) {
  Job job = jobOf({farmTask_});
  job.set("WorkingFolder", folder_.file("gone")).set("LogFolder", folder_.file("logs"));
  write(job);
  const ProcessResult result = submit({"--wait"});
  EXPECT_EQ(result.error, "task 1: failed with exit code 125: " + farmTask_ +
                              "\n1 task: 1 failed (1)\n" +
                              logsLine(folder_.file("logs/job-1.log")));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  EXPECT_EQ(elementsOf(linesOf(result.output)[0]).at(1).exitCode, "125:0");
  const std::string expected = "Runlet adapter: Could not set working folder : '" +
                               folder_.file("gone") + "': No such file or directory\n";
  EXPECT_TRUE(log("logs/job-1.log").ends_with(expected)) << log("logs/job-1.log");
}

// A minute is the shortest limit, and the engine looks only every half minute.
class TimeLimit : public NarrowFarmTest {};

TEST_F(TimeLimit, EndsATaskAndIsTold) {
  Job job = jobOf({farmTask_, farmTask_ + " sleep:200000"});
  job.set("TaskTimeout", "1");
  write(job);
  ProcessOptions options = submission({"--wait"});
  options.patience = std::chrono::minutes(4);
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(result.error, "task 1: succeeded: " + farmTask_ + "\ntask 2: timed out: " + farmTask_ +
                              " sleep:200000\n2 tasks: 1 succeeded, 1 timed out (2)\n" +
                              logsLine(folder_.file("job-*.log")));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  EXPECT_EQ(elementsOf(linesOf(result.output)[0]).at(2).state, "TIMEOUT");
}

}  // namespace
}  // namespace runlet_test
