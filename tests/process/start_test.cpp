#include <unistd.h>

#include "adapter_test.h"

namespace runlet_test {
namespace {

using Start = AdapterTest;

TEST_F(Start, AnswersUnderTheNameItWasStartedBy) {
  const struct {
    const char* startedBy;
    const char* name;
  } rows[] = {
      {"UserRunletAdapter", "Command Line Tool"},
      {"/opt/adapters/UserRunletAdapter", "Command Line Tool"},
      {"/opt/adapters/MyAdapter", "MyAdapter"},
      {"./bin/adapter2", "adapter2"},
      {"dir/", "dir"},
      {"/", "/"},
      {"dir//", "dir"},
      {"a/b//", "b"},
      {"bin/UserRunletAdapter/", "Command Line Tool"},
      {"userRunletAdapter", "userRunletAdapter"},
      {"UserRunletAdapter2", "UserRunletAdapter2"},
      {"UserRunletAdapter ", "UserRunletAdapter "},
      {"%s%d%n", "%s%d%n"},
      {"caf\xc3\xa9\xff", "caf\xc3\xa9\xff"},
      {"a<b>&\"c", "a<b>&\"c"},
      {"", "."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.startedBy);
    ProcessOptions options = adapter({"-o", "GetInfo"});
    options.program = adapterPath;
    options.arguments[0] = row.startedBy;
    expectResult(runProcess(options), infoReply(row.name), "", "exit 0");
  }
}

TEST_F(Start, AnswersUnderTheFileNameOfACopy) {
  const std::string copy = folder_.file("FarmTool");
  ASSERT_EQ(symlink(adapterPath.c_str(), copy.c_str()), 0);
  ProcessOptions options = adapter({"-o", "GetInfo"});
  options.arguments[0] = copy;
  expectResult(runProcess(options), infoReply("FarmTool"), "", "exit 0");
}

constexpr char noOpcode[] =
    "Runlet adapter: No opcode at all.\nRunlet adapter: Parse arguments failed.\n";

TEST_F(Start, FailsWithTwoLinesWithoutAnOpcode) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {}, {"-o", ""}, {"GetInfo"}, {"-j", "/job.xml", "-s", "1"}, {"-o", "X", "-o", ""}}) {
    expectResult(run(arguments), "", noOpcode, "exit 255");
  }
}

TEST_F(Start, LeavesInvalidOptionsToGetopt) {
  expectResult(run({"-x", "5", "-o", "GetInfo"}), infoReply("Command Line Tool"),
               adapterPath + ": invalid option -- 'x'\n", "exit 0");
  expectResult(run({"-o", "ShutDown", "-j"}), "",
               adapterPath + ": option requires an argument -- 'j'\n", "exit 0");
  expectResult(run({"-o"}), "", adapterPath + ": option requires an argument -- 'o'\n" + noOpcode,
               "exit 255");
}

TEST_F(Start, TakesTheLastOfRepeatedOptions) {
  expectResult(run({"-o", "NewTask", "-o", "GetInfo"}), infoReply("Command Line Tool"), "",
               "exit 0");
  expectResult(run({"-o", "GetInfo", "stray", "-o", "ShutDown"}), "", "", "exit 0");
}

using Requests = AdapterTest;

TEST_F(Requests, GetInfoReadsNoJobFile) {
  expectResult(run({"-o", "GetInfo", "-j", "/missing/job.xml"}), infoReply("Command Line Tool"), "",
               "exit 0");
}

TEST_F(Requests, SomeSucceedAndDoNothing) {
  for (const char* opcode : {"EvaluateJob", "LaunchApp", "PingLaunch", "ShutDown"}) {
    SCOPED_TRACE(opcode);
    expectResult(run({"-o", opcode, "-j", "/missing/job.xml", "-e", "5"}), "", "", "exit 0");
  }
}

TEST_F(Requests, UnknownOnesFailWithoutAMessage) {
  for (const char* opcode : {"getinfo", "GETINFO", "GetInfo ", " GetInfo", "GetInfoX", "GetInf",
                             "newTask", "Pingtask", "Shutdown", "x"}) {
    SCOPED_TRACE(opcode);
    expectResult(run({"-o", opcode}), "", "", "exit 255");
  }
}

TEST_F(Requests, FailWithoutAMessageIfTheJobFileNameIsMissing) {
  for (const char* opcode : {"NewTask", "PingTask"}) {
    SCOPED_TRACE(opcode);
    expectResult(run({"-o", opcode, "-s", "1"}), "", "", "exit 255");
    expectResult(run({"-o", opcode, "-s", "1", "-j", ""}), "", "", "exit 255");
  }
}

TEST_F(Requests, NewTaskRunsTheRangeClippedToTheJob) {
  const struct {
    std::size_t length;
    std::vector<std::string> range;
    std::vector<int> tasks;
  } rows[] = {
      {10, {"-s", "2", "-n", "3"}, {2, 3, 4}},
      {2, {"-s", "2", "-n", "3"}, {2}},
      {10, {"-s", "0", "-n", "3"}, {1, 2}},
      {10, {}, {}},
      {10, {"-s", "1"}, {1}},
      {10, {"-s", "10"}, {10}},
      {10, {"-s", "11"}, {}},
      {10, {"-s", " 7x"}, {7}},
      {10, {"-s", "abc", "-n", "2"}, {1}},
      {10, {"-n", "2"}, {1}},
      {10, {"-s", "3", "-n", "0"}, {}},
      {10, {"-s", "3", "-n", "-1"}, {}},
      {10, {"-s", "-2", "-n", "5"}, {1, 2}},
      {3, {"-s", "1", "-n", "2147483647"}, {1, 2, 3}},
      {3, {"-s", "x", "-n", "4294967299"}, {1, 2}},
      // the end of the range wraps around to below its start
      {3, {"-s", "2", "-n", "2147483647"}, {}},
      // and so does the start itself, to the largest number
      {3, {"-s", "-2147483648", "-n", "2"}, {}},
      {3, {"-s", "-2147483647", "-n", "2147483647"}, {}},
      {0, {"-s", "1", "-n", "5"}, {}},
  };
  for (const auto& row : rows) {
    Job job;
    job.arguments = "/bin/echo ran %tn";
    job.tasks.assign(row.length, "t");
    write(job);
    std::vector<std::string> arguments = {"-o", "NewTask", "-j", jobFile_};
    arguments.insert(arguments.end(), row.range.begin(), row.range.end());
    std::string output;
    for (const int number : row.tasks) {
      const std::string ran = "ran " + std::to_string(number);
      output += calling("/bin/echo " + ran, folder()) + processStarted + ran + "\n";
    }
    SCOPED_TRACE(testing::PrintToString(row.range));
    expectResult(run(arguments), output, "", "exit 0");
  }
}

TEST_F(Requests, NewTaskRunsOneTaskAfterTheOther) {
  Job job;
  job.arguments = "/bin/sh -c \"sleep 0.1; echo begin %tn; sleep 0.1; echo end %tn\"";
  job.tasks.assign(3, "t");
  write(job);
  std::string output;
  for (const std::string n : {"1", "2", "3"}) {
    const std::string begin = "begin " + n;
    const std::string end = "end " + n;
    output += calling("/bin/sh -c \"sleep 0.1; echo " + begin + "; sleep 0.1; echo " + end + "\"",
                      folder()) +
              processStarted + begin + "\n" + end + "\n";
  }
  const ProcessResult result = run(newTask(1, 3));
  EXPECT_EQ(withoutPids(result.output), output);
  EXPECT_EQ(result.error, "");
}

TEST_F(Requests, NewTaskStopsAtTheFirstTaskThatCannotBeStarted) {
  const std::string work = folder_.makeFolder("work");
  Job job;
  job.set("WorkingFolder", work);
  job.arguments = "/bin/rmdir " + work;
  job.tasks.assign(3, "t");
  write(job);
  expectResult(run(newTask(1, 3)), calling("/bin/rmdir " + work, work) + processStarted,
               cannotEnter(work, "No such file or directory"), "exit 255");
}

TEST_F(Requests, PingTaskComparesTheTimeWithTheLimit) {
  constexpr char timeOut[] = "Runlet adapter: Ping task time out.\n";
  const struct {
    const char* minutes;  // null = no such element
    const char* elapsed;  // null = no such option
    bool within;
  } rows[] = {
      {"2", "120000", true},
      {"2", "120001", false},
      {"2", "119999", true},
      {"2", "-1", true},
      {"2", nullptr, true},
      {nullptr, "0", true},
      {nullptr, nullptr, true},
      {nullptr, "1", false},
      {nullptr, "-1", true},
      {"-1", "-60000", true},
      {"-1", "-59999", false},
      {"35791", "2147460000", true},
      {"35791", "2147460001", false},
      // above that the product wraps around
      {"35792", "0", false},
      {"35792", "-2147447296", true},
      {"35792", "-2147447295", false},
      {"71583", "12704", true},
      {"71583", "12705", false},
      {"2", "4294967296", true},
  };
  for (const auto& row : rows) {
    Job job;
    if (row.minutes != nullptr) job.set("TaskTimeout", row.minutes);
    write(job);
    std::vector<std::string> arguments = {"-o", "PingTask", "-j", jobFile_};
    if (row.elapsed != nullptr) arguments.insert(arguments.end(), {"-e", row.elapsed});
    SCOPED_TRACE(testing::PrintToString(arguments) + (row.minutes != nullptr ? row.minutes : ""));
    expectResult(run(arguments), "", row.within ? "" : timeOut, row.within ? "exit 0" : "exit 255");
  }
}

}  // namespace
}  // namespace runlet_test
