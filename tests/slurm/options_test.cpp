// Options that `submit` passes to Slurm.

#include <algorithm>
#include <regex>

#include "farm.h"

namespace runlet_test {
namespace {

class SlurmOptions : public FarmTest {
 protected:
  std::string recordOf(const std::string& id) const {
    return ask({"/usr/bin/scontrol", "show", "job", "-o", id});
  }
};

// The maximum number of concurrent tasks, from the lines that each task writes at its start and
// end.
std::size_t mostAtOnce(const Lines& events) {
  std::set<std::string> running;
  std::size_t most = 0;
  for (const std::string& event : events) {
    const std::string task = event.substr(event.rfind(' '));
    if (!running.erase(task)) running.insert(task);
    most = std::max(most, running.size());
  }
  return most;
}

TEST_F(SlurmOptions, LimitHowManyTasksRunAtOnce) {
  Job job = reportingJob(10, "report:events sleep:300 report:events");
  write(job);
  awaitEnd(submittedOne({"--throttle", "2"}));
  expectEachReportedOnce(10);
  const Lines events = linesOf(log("events"));
  EXPECT_EQ(events.size(), 20U);
  EXPECT_EQ(mostAtOnce(events), 2U);
}

TEST_F(SlurmOptions, NameThePartition) {
  write(reportingJob(6));
  const std::string id = submittedOne({"--partition", "side"});
  awaitEnd(id);
  expectEachReportedOnce(6);
  EXPECT_EQ(nodesOfReports(6), Lines{"n4"});
}

TEST_F(SlurmOptions, ForSlurmReachIt) {
  write(reportingJob(2));
  const std::string id =
      submittedOne({"--sbatch-option", "--nodelist=n3", "--sbatch-option=--nice=77"});
  awaitEnd(id);
  EXPECT_EQ(nodesOfReports(2), Lines{"n3"});
  EXPECT_NE(recordOf(id).find(" Nice=77 "), std::string::npos);
}

// Slurm's record of a job, without its number, its times and its node.
std::string comparable(const std::string& record, const std::string& id) {
  const std::regex changing(
      "\\b(JobId|ArrayJobId|SubmitTime|EligibleTime|AccrueTime|StartTime|EndTime|Deadline|"
      "SuspendTime|LastSchedEval|NodeList|BatchHost|RunTime|AllocNode:Sid|Priority|JobState|Reason|"
      "Scheduler|NumNodes|NumCPUs|TRES|ReqTRES)=[^ \\n]*");
  return std::regex_replace(std::regex_replace(record, changing, "$1"),
                            std::regex("\\b" + id + "\\b"), "ID");
}

TEST_F(SlurmOptions, ForADryRunQueueNothingAndShowTheCommands) {
  write(reportingJob(3));
  const std::vector<std::string> all = {"--throttle", "2", "--partition", "side",
                                        "--sbatch-option=--hold"};
  std::vector<std::string> dry = all;
  dry.emplace_back("--dry-run");
  const std::string next = nextJobId();
  const ProcessResult shown = submit(dry);
  EXPECT_EQ(shown.error, "");
  EXPECT_EQ(describeStatus(shown.waitStatus), "exit 0");
  EXPECT_EQ(nextJobId(), next);

  const std::string pasted = firstLine(ask({"/bin/bash", "-c", shown.output}));
  const std::string own = submittedOne(all);
  EXPECT_EQ(comparable(recordOf(pasted), pasted), comparable(recordOf(own), own));
  EXPECT_EQ(ask({"/usr/bin/scontrol", "write", "batch_script", pasted, "-"}),
            ask({"/usr/bin/scontrol", "write", "batch_script", own, "-"}));
  ask({"/usr/bin/scancel", own});
  ask({"/usr/bin/scontrol", "release", pasted});
  awaitEnd(pasted);
  expectEachReportedOnce(3);
}

}  // namespace
}  // namespace runlet_test
