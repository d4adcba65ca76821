// The command line and the reply: behaviour beyond the fields of the parser.

#include <fcntl.h>
#include <unistd.h>

#include "adapter_test.h"

namespace runlet_test {
namespace {

using Options = AdapterTest;

TEST_F(Options, TakeTheirValueFromTheSameWordOrTheNext) {
  expectResult(run({"-oGetInfo"}), infoReply("Command Line Tool"), "", "exit 0");
  expectResult(run({"-o", "-o"}), "", "", "exit 255");
  expectResult(run({"-oShutDown", "-j-o", "-l"}), "",
               adapterPath + ": option requires an argument -- 'l'\n", "exit 0");
}

TEST_F(Options, EndAtTwoHyphens) {
  expectResult(run({"-o", "ShutDown", "--", "-o", "GetInfo", "-x"}), "", "", "exit 0");
}

TEST_F(Options, ForTheLogAndTheDataAreAcceptedAndNotUsed) {
  const std::string log = folder_.file("log");
  const std::string data = folder_.file("data");
  expectResult(run({"-o", "GetInfo", "-l", log, "-d", data}), infoReply("Command Line Tool"), "",
               "exit 0");
  Job job;
  job.arguments = "/bin/true";
  write(job);
  std::vector<std::string> arguments = newTask();
  arguments.insert(arguments.end(), {"-l", log, "-d", data});
  expectResult(run(arguments), calling("/bin/true", folder()) + processStarted, "", "exit 0");
  EXPECT_EQ(access(log.c_str(), F_OK), -1);
  EXPECT_EQ(access(data.c_str(), F_OK), -1);
}

// getopt names the program by argv[0], whatever the adapter's own name is.
TEST_F(Options, ThatAreInvalidAreReportedUnderTheNameInArgv) {
  const std::string program = "tools/render-adapter";
  const struct {
    std::vector<std::string> arguments;
    std::string error;
  } rows[] = {
      {{"-x"}, program + ": invalid option -- 'x'\n"},
      {{"-xyoGetInfo"},
       program + ": invalid option -- 'x'\n" + program + ": invalid option -- 'y'\n"},
      // getopt has no long options, and takes the letters one by one
      {{"--help"}, program + ": invalid option -- '-'\n" + program + ": invalid option -- 'h'\n"},
      {{"-O", "x"}, program + ": invalid option -- 'O'\n"},
      {{"-:"}, program + ": invalid option -- ':'\n"},
      {{"-n"}, program + ": option requires an argument -- 'n'\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    ProcessOptions options = adapter({"-o", "GetInfo"});
    options.program = adapterPath;
    options.arguments[0] = program;
    options.arguments.insert(options.arguments.end(), row.arguments.begin(), row.arguments.end());
    expectResult(runProcess(options), infoReply("render-adapter"), row.error, "exit 0");
  }
}

// The range has three tasks and may begin before the first task of the job.
TEST_F(Options, ForNumbersTakeTheLeadingDigitsAndTheLow32Bits) {
  const struct {
    const char* first;
    std::vector<int> tasks;
  } rows[] = {
      {"2", {2, 3, 4}},
      {" \t\n7x", {7, 8, 9}},
      {"+2", {2, 3, 4}},
      {"08", {8, 9}},
      {"0x2", {1, 2}},
      {"2 5", {2, 3, 4}},
      {"", {1, 2}},
      {"- 1", {1, 2}},
      {"4294967298", {2, 3, 4}},
      {"-4294967294", {2, 3, 4}},
      {"4294967295", {1}},
      // saturates at the largest number of 64 bits, of which the low 32 bits are -1
      {"99999999999999999999", {1}},
      {"-99999999999999999999", {1, 2}},
  };
  Job job;
  job.arguments = "/bin/true %tn";
  job.tasks.assign(9, "t");
  write(job);
  for (const auto& row : rows) {
    std::string output;
    for (const int number : row.tasks) {
      output += calling("/bin/true " + std::to_string(number), folder()) + processStarted;
    }
    SCOPED_TRACE(row.first);
    expectResult(run({"-o", "NewTask", "-j", jobFile_, "-n", "3", "-s", row.first}), output, "",
                 "exit 0");
  }
}

// The status is that of the request, not of writing the reply.
TEST_F(Options, SucceedIfTheReplyCannotBeWritten) {
  ProcessOptions options = adapter({"-o", "GetInfo"});
  options.prepare = [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); };
  expectResult(runProcess(options), "", "", "exit 0");
  options.prepare = [] { close(STDOUT_FILENO); };
  expectResult(runProcess(options), "", "", "exit 0");
}

}  // namespace
}  // namespace runlet_test
