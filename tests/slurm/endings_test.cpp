// How tasks end, as Slurm sees it and as `submit --wait` reports it.

#include <unistd.h>

#include <filesystem>

#include "farm.h"

namespace runlet_test {
namespace {

class SlurmEnding : public FarmTest {
 protected:
  // A program that nobody may execute
  const std::string plain_ = folder_.write("plain", "#!/bin/sh\n", 0644);
};

TEST_F(SlurmEnding, OfEveryKindIsSeenBySlurmAndReported) {
  struct Row {
    std::string command;
    std::string inSlurm;
    std::string asReported;
  };
  const std::vector<Row> rows = {
      {farmTask_ + " exit:3", "FAILED 3:0", "failed with exit code 3"},
      {farmTask_ + " exit:255", "FAILED 255:0", "failed with exit code 255"},
      {farmTask_ + " kill:9", "FAILED 0:9", "killed by signal 9 (Killed)"},
      {farmTask_ + " kill:11", "FAILED 0:11", "killed by signal 11 (Segmentation fault)"},
      {"./missing -x", "FAILED 127:0", "failed with exit code 127 (program not found)"},
      {plain_, "FAILED 126:0", "failed with exit code 126 (program not executable)"},
      {farmTask_, "COMPLETED 0:0", "succeeded"},
  };
  std::vector<std::string> commands;
  std::string summary;
  for (const Row& row : rows) {
    commands.push_back(row.command);
    const int task = static_cast<int>(commands.size());
    const std::string log = folder_.file("job-" + std::to_string(task) + ".log");
    if (row.asReported != "succeeded") summary += summaryOf(task, row.asReported, row.command, log);
  }
  write(jobOf(commands));
  const ProcessResult result = submit({"--wait"});
  EXPECT_EQ(result.error, summary + "task 7: succeeded: " + farmTask_ +
                              "\n7 tasks: 1 succeeded, 4 failed (1-2, 5-6), 2 killed (3-4)\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");

  std::map<int, Element> elements = elementsOf(firstLine(result.output));
  EXPECT_EQ(elements.size(), rows.size());
  for (int task = 1; task <= static_cast<int>(rows.size()); ++task) {
    const Row& row = rows[static_cast<std::size_t>(task - 1)];
    EXPECT_EQ(elements[task].state + " " + elements[task].exitCode, row.inSlurm) << row.command;
  }
}

TEST_F(SlurmEnding, WithoutTheProgramLeavesTheReasonInTheLog) {
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

TEST_F(SlurmEnding, WithoutTheRunFolderIsNotThatOfTheProgram) {
  Job job = jobOf({farmTask_});
  job.set("WorkingFolder", folder_.file("gone")).set("LogFolder", folder_.file("logs"));
  write(job);
  const ProcessResult result = submit({"--wait"});
  EXPECT_EQ(result.error, summaryOf(1, "failed with exit code 125 (task not set up)", farmTask_,
                                    folder_.file("logs/job-1.log")) +
                              "1 task: 1 failed (1)\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  EXPECT_EQ(elementsOf(firstLine(result.output)).at(1).exitCode, "125:0");
  const std::string expected = "Runlet adapter: Could not set working folder : '" +
                               folder_.file("gone") + "': No such file or directory\n";
  EXPECT_TRUE(log("logs/job-1.log").ends_with(expected)) << log("logs/job-1.log");
}

// A minute is the shortest limit, and Slurm checks only every half minute.
class SlurmTimeLimit : public FarmTest {
 protected:
  SlurmTimeLimit() : FarmTest("small") {}

  ProcessOptions patientSubmission(const std::vector<std::string>& arguments) const {
    ProcessOptions options = submission(arguments);
    options.patience = std::chrono::minutes(4);
    return options;
  }
};

TEST_F(SlurmTimeLimit, EndsATaskAndIsReported) {
  const std::string endless = farmTask_ + " sleep:200000";
  write(jobOf({farmTask_, endless, farmTask_}).set("TaskTimeout", "1").set("LogFolder", "alone"));
  Process waiting(patientSubmission({"--wait"}));
  ASSERT_TRUE(waiting.readUntil("\n"));
  // In a chunk the limit applies to each task, and is kept exactly.
  const std::string chunked = folder_.write(
      "chunked.xml", jobOf({farmTask_, endless, farmTask_}).set("TaskTimeout", "1").text());
  ProcessOptions inChunks = patientSubmission({});
  inChunks.arguments = {tool_, "submit", chunked, "--chunk", "3", "--wait"};
  Process waitingForChunks(inChunks);

  const ProcessResult result = waiting.finish();
  const std::string end = "task 1: succeeded: " + farmTask_ + "\ntask 3: succeeded: " + farmTask_ +
                          "\n3 tasks: 2 succeeded, 1 timed out (2)\n";
  EXPECT_EQ(result.error,
            summaryOf(2, "timed out", endless, folder_.file("alone/job-2.log")) + end);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  const std::string id = firstLine(result.output);
  EXPECT_EQ(elementsOf(id).at(2).state, "TIMEOUT");
  const std::string again = submit({"--failed-of", id, "--dry-run"}).output;
  EXPECT_NE(again.find(" '--array=2' "), std::string::npos) << again;

  const ProcessResult chunks = waitingForChunks.finish();
  EXPECT_EQ(chunks.error, summaryOf(2, "timed out", endless, folder_.file("chunked-2.log")) + end);
  EXPECT_EQ(describeStatus(chunks.waitStatus), "exit 1");
}

}  // namespace
}  // namespace runlet_test
