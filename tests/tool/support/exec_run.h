// runlet-job exec under test, with a job and real tasks.
#pragma once

#include <string>
#include <vector>

#include "adapter_test.h"

namespace runlet_test {

class ExecTest : public AdapterTest {
 protected:
  // Options that start exec with these words after the verb.
  ProcessOptions exec(const std::vector<std::string>& words) const;

  // The words for the task `number` of the job, followed by other options.
  std::vector<std::string> task(int number = 1, const std::vector<std::string>& more = {}) const;

  ProcessResult become(int number = 1, const std::vector<std::string>& more = {}) const;

  // Writes the job whose command is `arguments` and becomes its first task.
  ProcessResult becomeCommand(const std::string& arguments);

  // Like `exec`, for an unprivileged process, whoever runs the tests: for root, the program is
  // copied to a place where another user may execute it, and started as that user.
  ProcessOptions unprivilegedExec(const std::vector<std::string>& words) const;
};

// The message about a task that the job does not have.
std::string noSuchTask(const std::string& number, const std::string& jobFile,
                       const std::string& tasks);

}  // namespace runlet_test
