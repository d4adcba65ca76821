// Complete arrays on several nodes.

#include "farm.h"

namespace runlet_test {
namespace {

using SlurmArray = FarmTest;

TEST_F(SlurmArray, RunsEachOfItsTasksOnceOnAllNodes) {
  write(reportingJob(200));
  const std::string id = submittedOne();
  awaitEnd(id);
  const std::map<int, Element> elements = elementsOf(id);
  EXPECT_EQ(elements.size(), 200U);
  for (const auto& [index, element] : elements) {
    EXPECT_EQ(element.state + " " + element.exitCode, "COMPLETED 0:0") << index;
  }
  expectEachReportedOnce(200);
  EXPECT_EQ(nodesOfReports(200), (Lines{"n1", "n2", "n3", "n4"}));
  for (int task = 1; task <= 200; ++task) {
    EXPECT_EQ(log("job-" + padded(task, 3) + ".log"),
              calling(reportingCommand(std::to_string(task)), folder()));
  }
}

TEST_F(SlurmArray, IsWaitedForAndReported) {
  write(reportingJob(40));
  const ProcessResult result = submit({"--wait"});
  EXPECT_EQ(queue(), "");
  EXPECT_EQ(result.output, firstLine(result.output) + "\n");
  std::string summary;
  for (int task = 1; task <= 40; ++task) {
    summary += "task " + std::to_string(task) +
               ": succeeded: " + reportingCommand(std::to_string(task)) + "\n";
  }
  EXPECT_EQ(result.error, summary + "40 tasks: 40 succeeded\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  expectEachReportedOnce(40);
}

TEST_F(SlurmArray, OfARangeHasItsTasksAlone) {
  write(reportingJob(200));
  const std::string id = submittedOne({"-s", "98", "-n", "5"});
  awaitEnd(id);
  EXPECT_EQ(elementsOf(id).size(), 5U);
  for (int task = 96; task <= 104; ++task) {
    const bool isIn = task >= 98 && task <= 102;
    EXPECT_EQ(reportsOf(task).size(), isIn ? 1U : 0U) << task;
    EXPECT_EQ(log("job-" + padded(task, 3) + ".log") != "", isIn) << task;
  }
}

}  // namespace
}  // namespace runlet_test
