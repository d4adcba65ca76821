// A fake Slurm that records its calls.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "job.h"
#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {

// Programs called sbatch, squeue, sacct, scontrol and scancel, which record their arguments and
// reply as set by the test. By default they succeed without output.
class FakeSlurm {
 public:
  explicit FakeSlurm(const TempFolder& folder);

  // Sets what the program does from now on, as a shell script without a PATH.
  void reply(const std::string& program, const std::string& script) const;

  // The same only for its `number`th call, from 1.
  void reply(const std::string& program, int number, const std::string& script) const;

  // The arguments of every call, without the program's name.
  std::vector<std::vector<std::string>> calls(const std::string& program) const;

  // The standard input of the `number`th call.
  std::string input(const std::string& program, int number) const;

  // Removes the program.
  void remove(const std::string& program) const;

  // The folder with only these programs.
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
  // A job that is submitted without messages, unless it runs as root.
  static Job quietJob(int taskCount);

  // Writes the job file.
  void write(const Job& job) const;

  // Options that start the verb with `arguments` after the job file.
  ProcessOptions submit(const std::vector<std::string>& arguments) const;

  ProcessResult run(const std::vector<std::string>& arguments) const;

  // The same options for an unprivileged process, whoever runs the tests: for root, the program is
  // copied to a place where another user may execute it, and started as that user.
  ProcessOptions unprivileged(const std::vector<std::string>& arguments) const;

  // Runs the verb and asserts its whole result, except the warning about root's jobs.
  void expectSubmit(const std::vector<std::string>& arguments, const std::string& output,
                    const std::string& error, const std::string& status) const;

  // `error` after the warning about root's jobs.
  std::string withWarning(const std::string& error) const;

  // The arguments of sbatch for the job of `taskCount` tasks without options, with `elementCount`
  // elements `elements`.
  std::vector<std::string> plainArguments(const std::string& elements, int elementCount,
                                          int taskCount) const;

  // The comment of an array, "NUMBERS:HASH", and squeue's reply with it.
  std::string comment(const std::string& numbers) const;

  TempFolder folder_;
  FakeSlurm slurm_{folder_};
  std::string jobFile_ = folder_.file("job.xml");
};

// The path of the program under test as it sees it.
std::string ownPath();

}  // namespace runlet_test
