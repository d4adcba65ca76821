// The command line of runlet-job as a whole.

#include <gtest/gtest.h>

#include "process.h"

namespace runlet_test {
namespace {

ProcessResult runTool(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), RUNLET_JOB);
  ProcessOptions options;
  options.arguments = std::move(arguments);
  return runProcess(options);
}

TEST(ToolCommandLine, TellsItsVersion) {
  const ProcessResult result = runTool({"--version"});
  EXPECT_EQ(result.output, "runlet-job 1.1.0\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

}  // namespace
}  // namespace runlet_test
