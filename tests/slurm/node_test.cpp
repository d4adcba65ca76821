// A node that dies in the middle of an array, as a machine does: at once, with all that runs on it.

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "farm.h"

namespace runlet_test {
namespace {

// A process of the cluster that the tests run on.
struct ClusterProcess {
  pid_t pid;
  pid_t parent;
  std::string commandLine;  // a NUL behind every word
  std::string environment;  // likewise
};

bool holds(const std::string& words, const std::string& word) {
  return ('\0' + words).find('\0' + word + '\0') != std::string::npos;
}

pid_t parentIn(const std::string& stat) {
  const std::size_t name = stat.rfind(") ");
  return name == std::string::npos ? -1 : std::atoi(stat.c_str() + name + 4);
}

class SlurmLostNode : public FarmTest {
 protected:
  // Whatever happened, the other tests need the node.
  void TearDown() override {
    FarmTest::TearDown();
    if (nodes() != allIdle) start("n2");
    EXPECT_TRUE(eventually([&] { return nodes() == allIdle; })) << nodes();
  }

  std::vector<ClusterProcess> processes() const {
    std::vector<ClusterProcess> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      const pid_t pid = std::atoi(entry.path().filename().c_str());
      const std::string environment = readFile(entry.path() / "environ");
      if (pid <= 0 || !holds(environment, "SLURM_CONF=" + cluster_ + "/slurm.conf")) continue;
      found.push_back({pid, parentIn(readFile(entry.path() / "stat")),
                       readFile(entry.path() / "cmdline"), environment});
    }
    return found;
  }

  // Those of the node: its daemon, its tasks, and in between the daemons that look after these, so
  // that nobody is left to tell of the end of another.
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
    ask({"/bin/bash", "-c", ". \"$1\"; startNode \"$2\" \"$3\"", "-", RUNLET_CLUSTER_FUNCTIONS,
         cluster_, node});
  }

  static constexpr char allIdle[] = "n1 idle\nn2 idle\nn3 idle\nn4 idle\n";
};

TEST_F(SlurmLostNode, HasItsTasksRunOnOthers) {
  write(reportingJob(40, "await:go"));
  Process waiting(submission({"--wait"}));
  ASSERT_TRUE(waiting.readUntil("\n"));
  const std::string id = firstLine(waiting.output());
  // The daemon, and for each of four tasks the one that looks after it and the task itself
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
  // Of what a task wrote on the lost node nothing is left.
  for (int task = 1; task <= 40; ++task) {
    EXPECT_EQ(log("job-" + padded(task, 2) + ".log"),
              calling(reportingCommand(std::to_string(task), "await:go"), folder()));
  }
  start("n2");
}

}  // namespace
}  // namespace runlet_test
