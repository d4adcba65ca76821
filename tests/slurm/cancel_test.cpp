// An array that is cancelled while it is waited for.

#include "farm.h"

namespace runlet_test {
namespace {

using SlurmCancel = FarmTest;

TEST_F(SlurmCancel, IsReportedForEveryTaskThatHadNotEnded) {
  Job job = jobOf({farmTask_});
  job.tasks.resize(20, farmTask_ + " await:never");
  write(job);
  Process waiting(submission({"--wait"}));
  ASSERT_TRUE(waiting.readUntil("\n"));
  const std::string id = firstLine(waiting.output());
  EXPECT_TRUE(eventually([&] {
    const std::map<int, Element> elements = elementsOf(id);
    return elements.size() >= 17 && elements.at(1).state == "COMPLETED";
  }));
  ask({"/usr/bin/scancel", id});
  const ProcessResult result = waiting.finish();
  std::string summary;
  for (int task = 2; task <= 20; ++task) {
    summary += summaryOf(task, "cancelled", farmTask_ + " await:never",
                         folder_.file("job-" + padded(task, 2) + ".log"));
  }
  summary += "task 1: succeeded: " + farmTask_ + "\n";
  EXPECT_EQ(result.error, summary + "20 tasks: 1 succeeded, 19 cancelled (2-20)\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
}

TEST_F(SlurmCancel, OfChunksIsReportedForEveryTaskThatHadNotEndedToo) {
  const std::string waits = farmTask_ + " await:never";
  write(jobOf({waits, farmTask_, waits}));
  Process waiting(submission({"--chunk", "2", "--wait"}));
  ASSERT_TRUE(waiting.readUntil("\n"));
  EXPECT_TRUE(eventually([&] { return log("job-1.log") != "" && log("job-3.log") != ""; }));
  ask({"/usr/bin/scancel", firstLine(waiting.output())});
  const ProcessResult result = waiting.finish();
  EXPECT_EQ(result.error, summaryOf(1, "cancelled", waits, folder_.file("job-1.log")) +
                              summaryOf(2, "cancelled", farmTask_, folder_.file("job-2.log")) +
                              summaryOf(3, "cancelled", waits, folder_.file("job-3.log")) +
                              "3 tasks: 3 cancelled (1-3)\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
}

}  // namespace
}  // namespace runlet_test
