#include "tool_run.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>

namespace runlet_test {

ProcessOptions tool(const std::vector<std::string>& arguments) {
  ProcessOptions options;
  options.arguments = {RUNLET_JOB};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.environment = {{"PATH", "/usr/bin:/bin"}};
  return options;
}

ProcessResult runTool(const std::vector<std::string>& arguments) {
  return runProcess(tool(arguments));
}

void expectTool(const ProcessResult& result, const std::string& output, const std::string& error,
                const std::string& status) {
  EXPECT_EQ(result.output, output);
  EXPECT_EQ(result.error, error);
  EXPECT_EQ(describeStatus(result.waitStatus), status);
}

std::string notPositive(const std::string& value) {
  return CLI::Range(1, std::numeric_limits<std::int32_t>::max())(value);
}

}  // namespace runlet_test
