// Jobs submitted to the clusters that scripts/slurm-test starts.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "job.h"
#include "process.h"
#include "temp_folder.h"

namespace runlet_test {

// An array element in Slurm: "FAILED", "3:0", "n2".
struct Element {
  std::string state;
  std::string exitCode;  // the task's, and the signal that ended it
  std::string node;
  std::string jobId;  // its own; the last element has the id of the array
};

// A process of a cluster.
struct ClusterProcess {
  pid_t pid;
  pid_t parent;
  std::string commandLine;  // a NUL after every word
  std::string environment;  // a NUL after every variable
};

// Whether `word` is one of the NUL-terminated `words`.
bool holds(const std::string& words, const std::string& word);

using Lines = std::vector<std::string>;
Lines linesOf(const std::string& text);
std::string firstLine(const std::string& text);

// A job file in its own folder, on the cluster with four nodes, which run four tasks each at a
// time. Arrays have up to 1000 elements.
class FarmTest : public testing::Test {
 protected:
  explicit FarmTest(const std::string& cluster = "wide");

  void SetUp() override;
  void TearDown() override;  // cancels all jobs

  // A job of the user nobody whose task i runs `commands[i]`.
  static Job jobOf(const std::vector<std::string>& commands);

  // A job of `count` tasks, each of which appends a line with the node and its number to its own
  // file, after executing `actions` (see farm_task).
  Job reportingJob(int count, const std::string& actions = "") const;
  // The command of the task with that number.
  std::string reportingCommand(const std::string& task, const std::string& actions = "") const;

  // The same, but the tasks `failing` exit with 4 unless a file "fixed" exists.
  Job fixableJob(int count, const std::set<int>& failing) const;
  void fix() const;

  // The lines of the task's file, without the nodes.
  Lines reportsOf(int task) const;
  // The nodes in the files of all tasks, sorted and unique.
  Lines nodesOfReports(int count) const;
  // Asserts that each of the tasks 1 .. `count` has reported once, except `missing`, which have not
  // reported.
  void expectEachReportedOnce(int count, const std::set<int>& missing = {}) const;

  void write(const Job& job) const;

  // Options to start a program, by its path, for the cluster, with a time limit of two minutes.
  ProcessOptions program(const std::vector<std::string>& arguments) const;

  // The same for runlet-job submit with the job file and more arguments.
  ProcessOptions submission(const std::vector<std::string>& arguments = {}) const;
  ProcessResult submit(const std::vector<std::string>& arguments = {}) const;

  // Submits the job and returns the printed ids; asserts success, no other output, and `error` on
  // standard error.
  Lines submitted(const std::vector<std::string>& arguments = {},
                  const std::string& error = "") const;
  // The same for a job that becomes one array.
  std::string submittedOne(const std::vector<std::string>& arguments = {},
                           const std::string& error = "") const;

  // The output of a Slurm program; asserts its success.
  std::string ask(const std::vector<std::string>& arguments) const;

  // The array's elements by index, without those not yet started.
  std::map<int, Element> elementsOf(const std::string& id) const;
  // The job's pending and running elements, as squeue lists them.
  std::string queueOf(const std::string& id) const;
  std::string queue() const;
  // Waits until no element of the job is pending or running.
  void awaitEnd(const std::string& id) const;
  // The id that Slurm will give to the next job.
  std::string nextJobId() const;

  // All running processes of the cluster, including tasks.
  std::vector<ClusterProcess> processes() const;
  // Calls a function of cluster.sh with the cluster's folder and the arguments.
  void callCluster(const std::string& function,
                   const std::vector<std::string>& arguments = {}) const;

  std::string log(const std::string& name) const {
    return readFile(folder_.file(name));
  }

  const std::string& folder() const {
    return folder_.path();
  }

  const std::string cluster_;  // its folder
  // Copies of programs that every user may run.
  const std::string tool_;
  const std::string probe_;
  const std::string farmTask_;
  TempFolder folder_;
  std::string jobFile_ = folder_.file("job.xml");
};

// The same on a cluster that takes arrays of up to 100 elements.
class NarrowFarmTest : public FarmTest {
 protected:
  NarrowFarmTest() : FarmTest("narrow") {}
};

// Retries until `holds` returns true. False if that takes longer than a minute.
bool eventually(const std::function<bool()>& holds);

// The number with leading zeros.
std::string padded(int number, int digits);

// The summary lines of a task that did not succeed.
std::string summaryOf(int task, const std::string& ending, const std::string& command,
                      const std::string& log);

// The line that announces a command.
std::string calling(const std::string& command, const std::string& folder);

}  // namespace runlet_test
