#include "exec_run.h"

#include <grp.h>
#include <unistd.h>

#include <filesystem>

#include "programs.h"
#include "tool_run.h"

namespace runlet_test {

using Strings = std::vector<std::string>;

ProcessOptions ExecTest::exec(const Strings& words) const {
  Strings arguments = {"exec"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  return tool(arguments);
}

Strings ExecTest::task(int number, const Strings& more) const {
  Strings words = {jobFile_, "--task", std::to_string(number)};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

ProcessResult ExecTest::become(int number, const Strings& more) const {
  return runProcess(exec(task(number, more)));
}

ProcessResult ExecTest::becomeCommand(const std::string& arguments) {
  Job job;
  job.arguments = arguments;
  write(job);
  return become();
}

ProcessOptions ExecTest::unprivilegedExec(const Strings& words) const {
  ProcessOptions options = exec(words);
  if (geteuid() != 0) return options;
  options.program = folder_.file("runlet-job");
  std::filesystem::copy_file(toolPath, options.program,
                             std::filesystem::copy_options::overwrite_existing);
  options.prepare = [] {
    if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(otherId) != 0) _exit(97);
  };
  return options;
}

std::string noSuchTask(const std::string& number, const std::string& jobFile,
                       const std::string& tasks) {
  std::string line = "runlet-job: exec: no task ";
  return line.append(number).append(" in ").append(jobFile).append(", which has ").append(tasks) +
         "\n";
}

}  // namespace runlet_test
