// Jobs whose elements are nested as deep as the stack allows, for every verb that loads a job.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "job.h"
#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

constexpr rlim_t kibibyte = 1024;

struct Stack {
  rlim_t size;
  std::size_t levels;  // that fit, including the root and cmdData
};

constexpr Stack stacks[] = {
#ifndef RUNLET_IS_SANITIZED  // the program itself would need more than that
    {256 * kibibyte, 109},
    {512 * kibibyte, 546},
#endif
    {8192 * kibibyte, 10376},
};

class DeepJob : public testing::Test {
 protected:
  void write(std::size_t levels) {
    std::string nested;
    for (std::size_t i = 2; i < levels; ++i) nested += "<x>";
    for (std::size_t i = 2; i < levels; ++i) nested += "</x>";
    Job job;
    job.arguments = "/bin/true %tp1";
    job.set("WorkingFolder", folder_.path()).set("LogFolder", folder_.path());
    std::string text = job.text();
    const std::string opening = "<cmdData>";
    text.insert(text.find(opening) + opening.size(), nested);
    folder_.write("job.xml", text);
  }

  ProcessResult run(std::vector<std::string> arguments, rlim_t stack) const {
    arguments.insert(arguments.begin() + 1, jobFile_);
    ProcessOptions options = tool(arguments);
    options.prepare = [stack] {
      rlimit limit{};
      getrlimit(RLIMIT_STACK, &limit);
      limit.rlim_cur = stack;
      if (setrlimit(RLIMIT_STACK, &limit) != 0) _exit(95);
    };
    return runProcess(options);
  }

  const TempFolder folder_;
  const std::string jobFile_ = folder_.file("job.xml");
};

TEST_F(DeepJob, IsAcceptedByEveryVerbUpToTheLimit) {
  const struct {
    std::vector<std::string> arguments;
    const char* refused;  // the status beyond the limit
  } verbs[] = {
      {{"check"}, "exit 2"},
      {{"expand"}, "exit 2"},
      {{"exec", "--task", "1"}, "exit 125"},
      {{"run"}, "exit 2"},
      {{"submit", "--dry-run"}, "exit 2"},
  };
  for (const Stack& stack : stacks) {
    for (const auto& verb : verbs) {
      SCOPED_TRACE(verb.arguments[0] + " with " + std::to_string(stack.size));
      write(stack.levels);
      EXPECT_EQ(describeStatus(run(verb.arguments, stack.size).waitStatus), "exit 0");
      write(stack.levels + 1);
      const ProcessResult result = run(verb.arguments, stack.size);
      EXPECT_EQ(describeStatus(result.waitStatus), verb.refused);
      EXPECT_NE((result.output + result.error)
                    .find("Could not load parameter file " + jobFile_ +
                          ". Error='Elements nested too deep.'.Exiting."),
                std::string::npos)
          << result.output << result.error;
    }
  }
}

}  // namespace
}  // namespace runlet_test
