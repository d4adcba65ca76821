// Failures in the middle of an array: a node that dies like a machine, at once and with everything
// that runs on it; and the controller.

#include <signal.h>

#include <algorithm>
#include <thread>

#include "farm.h"

namespace runlet_test {
namespace {

class SlurmLostNode : public FarmTest {
 protected:
  // In any case, the other tests need the node.
  void TearDown() override {
    FarmTest::TearDown();
    if (nodes() != allIdle) start("n2");
    EXPECT_TRUE(eventually([&] { return nodes() == allIdle; })) << nodes();
  }

  // The processes of the node: its daemon, its tasks, and the daemons that supervise these, so that
  // none is left to report the end of another.
  std::vector<pid_t> processesOf(const std::string& node) const {
    std::vector<pid_t> daemons;
    std::vector<pid_t> tasks;
    const std::vector<ClusterProcess> all = processes();
    for (const ClusterProcess& process : all) {
      if (process.commandLine == std::string("slurmd\0-N\0", 10) + node + '\0') {
        daemons.push_back(process.pid);
      } else if (holds(process.environment, "SLURMD_NODENAME=" + node)) {
        tasks.push_back(process.pid);
        if (isStepDaemon(all, process.parent)) daemons.push_back(process.parent);
      }
    }
    daemons.insert(daemons.end(), tasks.begin(), tasks.end());
    return daemons;
  }

  static bool isStepDaemon(const std::vector<ClusterProcess>& all, pid_t pid) {
    return std::any_of(all.begin(), all.end(), [&](const ClusterProcess& process) {
      return process.pid == pid && process.commandLine.starts_with("slurmstepd:");
    });
  }

  std::string nodes() const {
    return ask({"/usr/bin/sinfo", "-h", "-N", "-p", "main", "-o", "%N %T"});
  }

  void start(const std::string& node) const {
    callCluster("startNode", {node});
  }

  static constexpr char allIdle[] = "n1 idle\nn2 idle\nn3 idle\nn4 idle\n";
};

TEST_F(SlurmLostNode, HasItsTasksRunOnOthers) {
  write(reportingJob(40, "await:go"));
  Process waiting(submission({"--wait"}));
  ASSERT_TRUE(waiting.readUntil("\n"));
  const std::string id = firstLine(waiting.output());
  // The daemon, and for each of four tasks its supervisor and the task itself
  ASSERT_TRUE(eventually([&] { return processesOf("n2").size() == 9; }));
  for (const pid_t process : processesOf("n2")) kill(process, SIGKILL);
  folder_.write("go", "");

  const ProcessResult result = waiting.finish();
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  const Lines summary = linesOf(result.error);
  ASSERT_EQ(summary.size(), 41U) << result.error;
  EXPECT_EQ(summary[40], "40 tasks: 40 succeeded");
  expectEachReportedOnce(40);
  EXPECT_EQ(nodesOfReports(40), (Lines{"n1", "n3", "n4"}));
  for (const auto& [index, element] : elementsOf(id)) {
    EXPECT_EQ(element.state + " " + element.exitCode, "COMPLETED 0:0") << index;
  }
  // Nothing that a task wrote on the lost node is left.
  for (int task = 1; task <= 40; ++task) {
    EXPECT_EQ(log("job-" + padded(task, 2) + ".log"),
              calling(reportingCommand(std::to_string(task), "await:go"), folder()));
  }
  start("n2");
}

class SlurmController : public NarrowFarmTest {
 protected:
  std::vector<pid_t> controller() const {
    std::vector<pid_t> found;
    for (const ClusterProcess& process : processes()) {
      if (process.commandLine == std::string("slurmctld\0", 10)) found.push_back(process.pid);
    }
    return found;
  }
};

TEST_F(SlurmController, MayBeStartedAgainWhileAnArrayIsWaitedFor) {
  write(reportingJob(4, "await:go"));
  Process waiting(submission({"--wait"}));
  ASSERT_TRUE(waiting.readUntil("\n"));
  const std::string id = firstLine(waiting.output());
  ASSERT_TRUE(eventually([&] { return elementsOf(id).size() == 4; }));
  ASSERT_EQ(controller().size(), 1U);
  kill(controller()[0], SIGTERM);
  EXPECT_TRUE(eventually([&] { return controller().empty(); }));
  std::this_thread::sleep_for(std::chrono::seconds(5));  // so that it is missed
  callCluster("startController");
  folder_.write("go", "");

  const ProcessResult result = waiting.finish();
  EXPECT_TRUE(result.error.ends_with("\n4 tasks: 4 succeeded\n")) << result.error;
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  expectEachReportedOnce(4);
}

}  // namespace
}  // namespace runlet_test
