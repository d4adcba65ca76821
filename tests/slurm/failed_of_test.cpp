// Submitting failed tasks again.

#include "farm.h"

namespace runlet_test {
namespace {

class SlurmFailedOf : public FarmTest {
 protected:
  // Submits the job and waits for its end.
  std::string runToEnd(const std::vector<std::string>& arguments = {}) const {
    const std::string id = submittedOne(arguments);
    awaitEnd(id);
    return id;
  }
};

TEST_F(SlurmFailedOf, AnArrayRunsWhatFailedAndNothingElse) {
  write(fixableJob(12, {2, 7, 11}));
  const std::string first = runToEnd();
  expectEachReportedOnce(12, {2, 7, 11});
  fix();
  const std::string second = runToEnd({"--failed-of", first});
  expectEachReportedOnce(12);
  const std::map<int, Element> elements = elementsOf(second);
  EXPECT_EQ(elements.size(), 3U);
  for (const int task : {2, 7, 11}) EXPECT_TRUE(elements.contains(task)) << task;
}

TEST_F(SlurmFailedOf, ANewArrayOfThatKindIsLikeOthers) {
  write(fixableJob(5, {2, 4}));
  const std::string second = runToEnd({"--failed-of", runToEnd()});
  EXPECT_EQ(elementsOf(second).size(), 2U);
  fix();
  const std::string third = runToEnd({"--failed-of", second});
  EXPECT_EQ(elementsOf(third).size(), 2U);
  expectEachReportedOnce(5);
}

TEST_F(SlurmFailedOf, SeveralArraysGivesOneList) {
  write(fixableJob(9, {1, 5, 9}));
  const std::string front = runToEnd({"-s", "1", "-n", "4"});
  const std::string back = runToEnd({"-s", "5", "-n", "5"});
  fix();
  EXPECT_EQ(elementsOf(runToEnd({"--failed-of", front, "--failed-of", back})).size(), 3U);
  expectEachReportedOnce(9);
}

TEST_F(SlurmFailedOf, AnArrayThatWasCancelledRunsTheRest) {
  Job job = reportingJob(20, "await:%tp1");
  for (std::string& task : job.tasks) task = "fixed";
  job.tasks[0] = ".";
  write(job);
  const std::string first = submittedOne();
  EXPECT_TRUE(eventually([&] {
    const std::map<int, Element> elements = elementsOf(first);
    return elements.size() >= 17 && elements.at(1).state == "COMPLETED";
  }));
  ask({"/usr/bin/scancel", first});
  awaitEnd(first);
  fix();
  EXPECT_EQ(elementsOf(runToEnd({"--failed-of", first})).size(), 19U);
  expectEachReportedOnce(20);
}

TEST_F(SlurmFailedOf, AnArrayMayNameTheJobFileInAnotherWay) {
  write(fixableJob(4, {3}));
  const ProcessResult first = runProcess(program({tool_, "submit", "job.xml"}));
  ASSERT_EQ(describeStatus(first.waitStatus), "exit 0") << first.error;
  awaitEnd(firstLine(first.output));
  fix();
  runToEnd({"--failed-of", firstLine(first.output)});
  expectEachReportedOnce(4);
}

TEST_F(SlurmFailedOf, AnArrayWithoutFailuresSubmitsNothing) {
  write(reportingJob(3));
  const std::string first = runToEnd();
  const std::string next = nextJobId();
  const ProcessResult result = submit({"--failed-of", first});
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "runlet-job: submit: no task has failed\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  EXPECT_EQ(nextJobId(), next);
}

TEST_F(SlurmFailedOf, AnotherJobFileIsRefused) {
  write(fixableJob(3, {2}));
  const std::string first = runToEnd();
  folder_.write("other.xml", fixableJob(3, {2}).text());
  const std::string next = nextJobId();
  const ProcessResult result =
      runProcess(program({tool_, "submit", folder_.file("other.xml"), "--failed-of", first}));
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "runlet-job: submit: array " + first +
                              " was submitted for another job file than " +
                              folder_.file("other.xml") + "\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
  EXPECT_EQ(nextJobId(), next);
}

TEST_F(SlurmFailedOf, AnArrayThatIsUnknownIsRefused) {
  write(reportingJob(3));
  const ProcessResult result = submit({"--failed-of", "987654"});
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "runlet-job: submit: Slurm no longer knows array 987654\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
}

TEST_F(SlurmFailedOf, AnArrayThatStillRunsTakesWhatHasFailedSoFar) {
  Job job = fixableJob(4, {2});
  job.arguments = farmTask_ + " %tp2 need:%tp1 report:out-%tn %tn";
  for (std::string& task : job.tasks) task += "\tsleep:0";
  job.tasks[3] = ".\tawait:fixed";
  write(job);
  const std::string first = submittedOne();
  EXPECT_TRUE(eventually([&] {
    std::map<int, Element> elements = elementsOf(first);
    return elements[1].state == "COMPLETED" && elements[2].state == "FAILED" &&
           elements[3].state == "COMPLETED";
  }));
  const std::string second = submittedOne(
      {"--failed-of", first}, "runlet-job: submit: skipped, not finished yet: tasks 4\n");
  awaitEnd(second);
  EXPECT_EQ(elementsOf(second).size(), 1U);
  fix();
  awaitEnd(first);
}

// Arrays of at most 100 elements.
class SlurmSplit : public NarrowFarmTest {
 protected:
  Lines runToEnd(const std::vector<std::string>& arguments = {}) const {
    const Lines ids = submitted(arguments);
    for (const std::string& id : ids) awaitEnd(id);
    return ids;
  }
};

TEST_F(SlurmSplit, ArraysRunEachTaskOnce) {
  write(reportingJob(250));
  const Lines ids = runToEnd();
  EXPECT_EQ(ids.size(), 3U);
  expectEachReportedOnce(250);
  for (int task = 1; task <= 250; ++task) {
    EXPECT_EQ(log("job-" + padded(task, 3) + ".log"),
              calling(reportingCommand(std::to_string(task)), folder()));
  }
}

TEST_F(SlurmSplit, ArraysAreOnlyThoseThatTheRangeNeeds) {
  write(reportingJob(250));
  EXPECT_EQ(runToEnd({"-s", "150", "-n", "50"}).size(), 1U);
  EXPECT_EQ(runToEnd({"-s", "200"}).size(), 1U);
  EXPECT_EQ(runToEnd({"-s", "95", "-n", "10"}).size(), 2U);
  std::set<int> missing;
  for (int task = 1; task <= 250; ++task) {
    const bool isIn = (task >= 95 && task <= 104) || (task >= 150 && task <= 200);
    if (!isIn) missing.insert(task);
  }
  expectEachReportedOnce(250, missing);
}

TEST_F(SlurmSplit, ArraysAreAskedForTheirFailuresTogether) {
  const std::set<int> failing = {1, 99, 100, 101, 200, 250};
  write(fixableJob(250, failing));
  const Lines first = runToEnd();
  expectEachReportedOnce(250, failing);
  fix();
  std::vector<std::string> arguments;
  for (const std::string& id : first) {
    arguments.emplace_back("--failed-of");
    arguments.push_back(id);
  }
  std::size_t again = 0;
  for (const std::string& id : runToEnd(arguments)) again += elementsOf(id).size();
  EXPECT_EQ(again, failing.size());
  expectEachReportedOnce(250);
}

TEST_F(SlurmSplit, ArraysAreWaitedForTogether) {
  write(fixableJob(120, {7, 110}));
  const ProcessResult result = submit({"--wait"});
  EXPECT_EQ(linesOf(result.output).size(), 2U);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  EXPECT_NE(
      result.error.find(summaryOf(7, "failed with exit code 4", reportingCommand("7", "need:fixed"),
                                  folder_.file("job-007.log"))),
      std::string::npos);
  EXPECT_NE(result.error.find(summaryOf(110, "failed with exit code 4",
                                        reportingCommand("110", "need:fixed"),
                                        folder_.file("job-110.log")) +
                              "task 1: succeeded: " + reportingCommand("1", "need:.") + "\n"),
            std::string::npos);
  EXPECT_TRUE(result.error.ends_with("120 tasks: 118 succeeded, 2 failed (7, 110)\n"));
}

using SlurmChunks = FarmTest;

TEST_F(SlurmChunks, RunEachTaskOnceAndNameTheOneThatFails) {
  write(fixableJob(25, {13}));
  const ProcessResult result = submit({"--chunk", "10", "--wait"});
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  EXPECT_EQ(elementsOf(firstLine(result.output)).size(), 3U);
  expectEachReportedOnce(25, {13});
  EXPECT_NE(result.error.find(summaryOf(13, "failed with exit code 4",
                                        reportingCommand("13", "need:fixed"),
                                        folder_.file("job-13.log")) +
                              "task 1: succeeded: " + reportingCommand("1", "need:.") + "\n"),
            std::string::npos)
      << result.error;
  EXPECT_TRUE(result.error.ends_with("25 tasks: 24 succeeded, 1 failed (13)\n"));
  EXPECT_EQ(log("job-13.log"), calling(reportingCommand("13", "need:fixed"), folder()));
  for (const char* chunk : {"job-chunk-0.log", "job-chunk-1.log", "job-chunk-2.log"}) {
    EXPECT_NE(log(chunk), "") << chunk;
  }

  fix();
  const Lines again = linesOf(submit({"--failed-of", firstLine(result.output), "--wait"}).output);
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(elementsOf(again[0]).size(), 1U);
  expectEachReportedOnce(25);
}

}  // namespace
}  // namespace runlet_test
