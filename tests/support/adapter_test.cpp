#include "adapter_test.h"

#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

namespace runlet_test {

std::vector<std::string> AdapterTest::newTask(int first, int count) const {
  return {
      "-o", "NewTask", "-j", jobFile_, "-s", std::to_string(first), "-n", std::to_string(count)};
}

void AdapterTest::write(const Job& job) {
  folder_.write("job.xml", job.text());
}

ProcessOptions AdapterTest::adapter(const std::vector<std::string>& arguments) const {
  ProcessOptions options;
  options.arguments = arguments;
  options.arguments.insert(options.arguments.begin(), adapterPath);
  // The caller's PATH may have folders that another user cannot access.
  options.environment.emplace_back("PATH", "/usr/bin:/bin");
  // Preloaded libraries must come before a sanitizer's.
  options.environment.emplace_back("ASAN_OPTIONS", "verify_asan_link_order=0");
  return options;
}

ProcessOptions AdapterTest::withFault(const std::string& fault,
                                      const std::vector<std::string>& arguments) const {
  ProcessOptions options = adapter(arguments);
  options.environment.emplace_back("LD_PRELOAD", faultsPath);
  options.environment.emplace_back("RUNLET_FAULT", fault);
  return options;
}

ProcessResult AdapterTest::run(const std::vector<std::string>& arguments) const {
  return runProcess(adapter(arguments));
}

ProcessResult AdapterTest::runCommand(const std::string& arguments) {
  Job job;
  job.arguments = arguments;
  write(job);
  return run(newTask());
}

std::string AdapterTest::probe() const {
  return '"' + probePath + "\" " + folder_.file("report");
}

Report AdapterTest::report() const {
  Report lines;
  std::istringstream text(readFile(folder_.file("report")));
  for (std::string line; std::getline(text, line);) {
    // Of the coverage runtime.
    if (line.find("__LLVM_PROFILE_RT_INIT_ONCE") != std::string::npos) continue;
    const std::size_t end = line.find_first_of(" \t");
    lines[line.substr(0, end)].push_back(end == std::string::npos ? "" : line.substr(end + 1));
  }
  return lines;
}

ProcessOptions AdapterTest::unprivileged(const std::vector<std::string>& arguments) const {
  ProcessOptions options = adapter(arguments);
  if (geteuid() != 0) return options;
  options.program = folder_.file("adapter");
  std::filesystem::copy_file(adapterPath, options.program,
                             std::filesystem::copy_options::overwrite_existing);
  options.prepare = [] {
    if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(otherId) != 0) _exit(97);
  };
  return options;
}

void AdapterTest::expectNotExecuted(const ProcessResult& result, const std::string& command,
                                    const std::string& reason) const {
  SCOPED_TRACE(command);
  const std::string line = calling(command, folder());
  const std::string output = withoutPids(result.output);
  EXPECT_TRUE(output == line + line + processStarted || output == line + processStarted + line)
      << output;
  EXPECT_EQ(result.error, cannotExecute(command, reason) + exitCodeLine(-127));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

std::string calling(const std::string& commandLine, const std::string& folder) {
  std::string line = "Calling '";
  return line.append(commandLine).append("' from '").append(folder).append("'\n");
}

std::string withoutPids(const std::string& output) {
  static const std::regex id("(\\[ServerMessage\\]ProcessStarted processId=)[0-9]+\n");
  return std::regex_replace(output, id, "$1PID\n");
}

std::string adapterLinesFirst(const std::string& output) {
  std::string ofAdapter;
  std::string ofTasks;
  for (std::size_t at = 0; at < output.size();) {
    const std::size_t end = std::min(output.find('\n', at), output.size() - 1) + 1;
    const std::string line = output.substr(at, end - at);
    const bool isAdapters = line.rfind("Calling '", 0) == 0 || line == processStarted;
    (isAdapters ? ofAdapter : ofTasks) += line;
    at = end;
  }
  return ofAdapter + ofTasks;
}

void expectResult(const ProcessResult& result, const std::string& output, const std::string& error,
                  const std::string& status) {
  EXPECT_EQ(adapterLinesFirst(withoutPids(result.output)), adapterLinesFirst(output));
  EXPECT_EQ(result.error, error);
  EXPECT_EQ(describeStatus(result.waitStatus), status);
}

std::string fourTimes(unsigned id) {
  const std::string text = std::to_string(id);
  return text + "\t" + text + "\t" + text + "\t" + text;
}

std::string infoReply(const std::string& name) {
  return "<AdapterInfo>\n\t<Name>" + name + "</Name>\n\t<Version>400</Version>\n\t<Description>" +
         name + " v2023 with user rights</Description>\n</AdapterInfo>\n";
}

std::string exitCodeLine(int code) {
  return "Runlet adapter: Process exit abnormally,Exit code is " + std::to_string(code) + "\n";
}

std::string cannotExecute(const std::string& command, const std::string& reason) {
  std::string line = "Runlet adapter: Cannot execute command:'";
  return line.append(command).append("':").append(reason).append("\n");
}

std::string cannotEnter(const std::string& folder, const std::string& reason) {
  std::string line = "Runlet adapter: Could not set working folder : '";
  return line.append(folder).append("': ").append(reason);
}

std::string errorOf(const std::vector<std::string>& command, const std::function<void()>& prepare) {
  ProcessOptions options;
  options.arguments = command;
  options.prepare = prepare;
  const ProcessResult result = runProcess(options);
  EXPECT_NE(describeStatus(result.waitStatus), "exit 0") << command[0];
  EXPECT_NE(result.error, "") << command[0];
  return result.error;
}

std::string chmodError(const std::string& file, const std::function<void()>& prepare) {
  return errorOf({"/bin/chmod", "755", file}, prepare);
}

std::string cannotFork(const std::string& command, const std::string& wait) {
  std::string text = "Runlet adapter: Cannot start a new child process\n";
  text.append(wait).append("Cannot start ").append(command);
  return text.append(
      "\nMake sure the batch file or executable name has its full name and path (or configure "
      "server accordingly)\n");
}

std::string terminateText(const std::string& type, const std::string& what) {
  std::string text = "terminate called after throwing an instance of '";
  return text.append(type).append("'\n  what():  ").append(what).append("\n");
}

}  // namespace runlet_test
