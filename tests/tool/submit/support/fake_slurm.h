// An engine that only writes down what it is asked for.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "job.h"
#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {

// Programs called sbatch, squeue, sacct, scontrol and scancel, which record their arguments and
// answer with what a test has told them. Without that they succeed and say nothing.
class FakeSlurm {
 public:
  explicit FakeSlurm(const TempFolder& folder);

  // What the program does from now on, in the words of a shell that has no PATH.
  void reply(const std::string& program, const std::string& script) const;

  // Likewise for its `number`th call, counted from 1, alone.
  void reply(const std::string& program, int number, const std::string& script) const;

  // The arguments of every call, behind the program's name.
  std::vector<std::vector<std::string>> calls(const std::string& program) const;

  // The standard input of the `number`th call.
  std::string input(const std::string& program, int number) const;

  // There is no such program any more.
  void remove(const std::string& program) const;

  // Where the programs are, and nothing else.
  const std::string& path() const {
    return bin_;
  }

 private:
  const TempFolder& folder_;
  std::string bin_;
};

// A job of a few tasks, and runlet-job submit on it.
class SubmitTest : public testing::Test {
 protected:
  // A job that is submitted without a word, unless it is root's.
  static Job quietJob(int taskCount);

  // Writes the job file.
  void write(const Job& job) const;

  // Options that start the verb with `arguments` behind the job file.
  ProcessOptions submit(const std::vector<std::string>& arguments) const;

  ProcessResult run(const std::vector<std::string>& arguments) const;

  // The same options for a process without privilege, whoever runs the tests: as root the program
  // is copied to where another user may execute it, and started as that user.
  ProcessOptions unprivileged(const std::vector<std::string>& arguments) const;

  // Runs the verb and asserts all that comes out of it, what is said of root's jobs aside.
  void expectSubmit(const std::vector<std::string>& arguments, const std::string& output,
                    const std::string& error, const std::string& status) const;

  // `error` behind what is said of root's jobs.
  std::string withWarning(const std::string& error) const;

  // The arguments of sbatch for the job of `taskCount` tasks and without options: for its elements
  // `elements`, which are `elementCount`.
  std::vector<std::string> plainArguments(const std::string& elements, int elementCount,
                                          int taskCount) const;

  // The comment of an array, "NUMBERS:HASH", and how squeue answers with it.
  std::string comment(const std::string& numbers) const;

  TempFolder folder_;
  FakeSlurm slurm_{folder_};
  std::string jobFile_ = folder_.file("job.xml");
};

// The path of the program under test as it knows it.
std::string ownPath();

}  // namespace runlet_test
