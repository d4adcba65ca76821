// Jobs sent to the clusters that scripts/slurm-test brings up.
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

// An array's element as the engine knows it: "FAILED", "3:0", "n2".
struct Element {
  std::string state;
  std::string exitCode;  // the task's, and the signal that ended it
  std::string node;
  std::string jobId;  // of its own; an array's id is that of its last element
};

// A process of a cluster.
struct ClusterProcess {
  pid_t pid;
  pid_t parent;
  std::string commandLine;  // a NUL behind every word
  std::string environment;  // likewise
};

// Whether `word` is among words that each have a NUL behind them.
bool holds(const std::string& words, const std::string& word);

using Lines = std::vector<std::string>;
Lines linesOf(const std::string& text);
std::string firstLine(const std::string& text);

// A job file in a folder of its own, on the cluster with four nodes, which have four tasks each at
// a time. Arrays of up to 1000 elements.
class FarmTest : public testing::Test {
 protected:
  explicit FarmTest(const std::string& cluster = "wide");

  void SetUp() override;
  void TearDown() override;  // nothing is left in the queue

  // A job of nobody whose task i is the command `commands[i]`.
  static Job jobOf(const std::vector<std::string>& commands);

  // A job of `count` tasks, which each add a line with the node and the task's number to a file of
  // their own. `orders` are for farm_task before that.
  Job reportingJob(int count, const std::string& orders = "") const;
  // The command of the task with that number.
  std::string reportingCommand(const std::string& task, const std::string& orders = "") const;

  // The same, but the tasks `failing` end with 4 unless there is a file "mended".
  Job mendableJob(int count, const std::set<int>& failing) const;
  void mend() const;

  // The lines of the task's file, each without the node.
  Lines reportsOf(int task) const;
  // The nodes in the files of all tasks, each once, in order.
  Lines nodesOfReports(int count) const;
  // Asserts that each of the tasks 1 .. `count` has reported once, apart from `missing`, which have
  // not at all.
  void expectEachReportedOnce(int count, const std::set<int>& missing = {}) const;

  void write(const Job& job) const;

  // Options that start a program, by its path, for the cluster; two minutes for it.
  ProcessOptions program(const std::vector<std::string>& arguments) const;

  // Those of runlet-job submit for the job file, with more arguments.
  ProcessOptions submission(const std::vector<std::string>& arguments = {}) const;
  ProcessResult submit(const std::vector<std::string>& arguments = {}) const;

  // Submits the job and yields the ids that were printed; asserts that nothing else was, and
  // success. `error` is what has to be on standard error.
  Lines submitted(const std::vector<std::string>& arguments = {},
                  const std::string& error = "") const;
  // The same where it is one array.
  std::string submittedOne(const std::vector<std::string>& arguments = {},
                           const std::string& error = "") const;

  // What a program of the engine prints; asserts its success.
  std::string ask(const std::vector<std::string>& arguments) const;

  // The array's elements by their index, those aside that have not been started yet.
  std::map<int, Element> elementsOf(const std::string& id) const;
  // The job's elements that wait or run, as squeue lists them.
  std::string queueOf(const std::string& id) const;
  std::string queue() const;
  // Waits until nothing of the job waits or runs.
  void awaitEnd(const std::string& id) const;
  // The id that the engine will give to the next job.
  std::string nextJobId() const;

  // All of the cluster that run, down to its tasks.
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
  // Programs where every user may run them
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

// Tries again and again until `holds` yields true. False when that takes longer than a minute.
bool eventually(const std::function<bool()>& holds);

// The number with zeros in front.
std::string padded(int number, int digits);

// What a summary says of a task that has not succeeded.
std::string told(int task, const std::string& ending, const std::string& command,
                 const std::string& log);

// The line that announces a command.
std::string calling(const std::string& command, const std::string& folder);

}  // namespace runlet_test
