// The command line of runlet-job as a whole.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "temp_folder.h"
#include "tool/verbs/options.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

TEST(ToolCommandLine, PrintsItsVersion) {
  expectTool(runTool({"--version"}), "runlet-job 1.2.0\n", "", "exit 0");
}

TEST(ToolCommandLine, ListsItsVerbs) {
  const ProcessResult result = runTool({"--help"});
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  for (const char* verb :
       {"expand", "check", "explain", "make", "schema", "exec", "run", "submit", "report"}) {
    EXPECT_NE(result.output.find("\n  " + std::string(verb) + " "), std::string::npos) << verb;
  }
}

// A repeatable option does not take the words after its value.
TEST(ToolCommandLine, MayNameTheJobAfterAnOption) {
  for (const char* verb : {"run", "submit"}) {
    const ProcessResult result = runTool({verb, "--keep-env", "NAME", "/nowhere/job.xml"});
    EXPECT_TRUE(result.error.starts_with("/nowhere/job.xml: error RJ001: ")) << result.error;
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
  }
  expectTool(
      runTool({"exec", "--keep-env", "NAME", "/nowhere/job.xml", "--task", "1"}), "",
      "Runlet adapter: Could not load parameter file /nowhere/job.xml. Error='Failed to open "
      "file'.Exiting.\n",
      "exit 125");
}

TEST(ToolCommandLine, IsRefusedInOneLineAndWithStatus2) {
  struct Row {
    std::vector<std::string> arguments;
    std::string error;
  };
  const Row rows[] = {
      {{}, "runlet-job: A subcommand is required\nSee: runlet-job --help\n"},
      {{"chek", "job.xml"}, "runlet-job: unknown verb: chek\nSee: runlet-job --help\n"},
      {{"check"}, "runlet-job: job is required\nSee: runlet-job check --help\n"},
      {{"expand", "job.xml", "-s", "x"},
       "runlet-job: Could not convert: -s = x\nSee: runlet-job expand --help\n"},
      {{"expand", "job.xml", "-n", "99999999999"},
       "runlet-job: Could not convert: -n = 99999999999\nSee: runlet-job expand --help\n"},
      {{"check", "--jsn", "job.xml"},
       "runlet-job: The following argument was not expected: --jsn\nSee: runlet-job check "
       "--help\n"},
  };
  for (const Row& row : rows) expectTool(runTool(row.arguments), "", row.error, "exit 2");
}

// Like the numbers in the names of logs.
TEST(ToolCommandLine, ReadsNumbersWithLeadingZerosAsDecimal) {
  const struct {
    const char* text;
    const char* number;
  } rows[] = {{"010", "10"}, {"0", "0"},  {"00", "0"}, {"-010", "-10"}, {"+07", "+7"},
              {"0x1", "x1"}, {"08", "8"}, {"", ""},    {"100", "100"},  {"-", "-"}};
  for (const auto& row : rows) EXPECT_EQ(runlet_tool::inDecimal(row.text), row.number);
  expectTool(runTool({"exec", "/none.xml", "--task", "0x1"}), "",
             "runlet-job: Could not convert: --task = x1\nSee: runlet-job exec --help\n",
             "exit 125");
}

TEST(ToolCommandLine, ReportsThatItsOutputIsLost) {
  for (const char* verb : {"--version", "explain"}) {
    ProcessOptions options = tool({verb});
    options.prepare = [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); };
    expectTool(runProcess(options), "",
               "runlet-job: cannot write to standard output: No space left on device\n", "exit 2");
  }
}

// No sanitizer runs in such a small address space.
#ifdef RUNLET_IS_SANITIZED
constexpr bool isShortOfMemory = false;
#else
constexpr bool isShortOfMemory = true;
#endif

TEST(ToolCommandLine, ReportsALackOfMemory) {
  constexpr rlim_t space = rlim_t{128} << 20;
  const TempFolder folder;
  std::string tasks;
  std::string job = "<Job><cmdData><Arguments>{true}</Arguments><gid>1</gid><TaskList>";
  for (int i = 1; i <= 500'000; ++i) {
    tasks += "task " + std::to_string(i) + "\n";
    job += "<Task><Params>{task " + std::to_string(i) + "}</Params></Task>";
  }
  job += "</TaskList></cmdData></Job>";
  const std::string taskFile = folder.write("tasks.tsv", tasks);
  const std::string jobFile = folder.write("job.xml", job);
  const struct {
    std::vector<std::string> arguments;
    const char* status;
  } rows[] = {
      {{"make", "--tasks", taskFile, "--", "true"}, "exit 2"},
      {{"check", jobFile}, "exit 2"},
      {{"expand", jobFile}, "exit 2"},
      {{"run", jobFile}, "exit 2"},
      {{"submit", jobFile}, "exit 2"},
      {{"exec", jobFile, "--task", "1"}, "exit 125"},
  };
  for (const auto& row : rows) {
    if (!isShortOfMemory) continue;
    ProcessOptions options = tool(row.arguments);
    options.prepare = [] {
      const rlimit limit{.rlim_cur = space, .rlim_max = space};
      if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(95);
    };
    SCOPED_TRACE(row.arguments.front());
    expectTool(runProcess(options), "", "runlet-job: out of memory\n", row.status);
  }
}

}  // namespace
}  // namespace runlet_test
