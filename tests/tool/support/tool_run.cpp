#include "tool_run.h"

#include <gtest/gtest.h>
#include <linux/keyctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

#include "programs.h"

namespace runlet_test {

ProcessOptions tool(const std::vector<std::string>& arguments) {
  ProcessOptions options;
  options.arguments = {toolPath};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.environment = {{"PATH", "/usr/bin:/bin"}};
  return options;
}

ProcessResult runTool(const std::vector<std::string>& arguments) {
  return runProcess(tool(arguments));
}

std::string withoutKeyringNote(std::string text) {
  static const std::string note = [] {
    // Only queries the id of a keyring, without changing any.
    const long id = syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_USER_KEYRING, 0);
    const bool isForbidden = id == -1 && (errno == ENOSYS || errno == EPERM || errno == EACCES);
    return isForbidden ? std::string("runlet-job: no session keyring for the task: ") +
                             std::strerror(errno) + "; it keeps that of its starter\n"
                       : "";
  }();
  const std::size_t place = note.empty() ? std::string::npos : text.find(note);
  if (place != std::string::npos) text.erase(place, note.size());
  return text;
}

void expectTool(const ProcessResult& result, const std::string& output, const std::string& error,
                const std::string& status) {
  EXPECT_EQ(result.output, output);
  EXPECT_EQ(withoutKeyringNote(result.error), error);
  EXPECT_EQ(describeStatus(result.waitStatus), status);
}

std::string notPositive(const std::string& value) {
  return CLI::Range(1, std::numeric_limits<std::int32_t>::max())(value);
}

}  // namespace runlet_test
