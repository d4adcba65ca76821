// The whole output of runlet-job expand.

#include <gtest/gtest.h>

#include "job.h"
#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

class Expand : public testing::Test {
 protected:
  ProcessResult run(const std::vector<std::string>& options) const {
    std::vector<std::string> arguments = {"expand", jobFile_};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return runTool(arguments);
  }

  void write(const std::string& arguments, const std::vector<std::string>& tasks,
             const std::vector<std::pair<std::string, std::string>>& params = {}) {
    Job job;
    job.arguments = arguments;
    job.tasks = tasks;
    job.params = params;
    job.set("WorkingFolder", "/srv/clouds").set("uid", "1234").set("gid", "99");
    text_ = job.text();
    folder_.write("job.xml", text_);
  }

  void replace(const std::string& from, const std::string& to) {
    text_.replace(text_.find(from), from.size(), to);
    folder_.write("job.xml", text_);
  }

  TempFolder folder_;
  const std::string jobFile_ = folder_.file("job.xml");
  std::string text_;
};

TEST_F(Expand, ShowsEveryTask) {
  write("bake -n %3tn \"%tp1\" %jp1", {"high sky", "low sky\t2"}, {{"wind", "from $WEST"}});
  expectTool(run({}),
             "task 1\n"
             "  folder  /srv/clouds\n"
             "  Calling 'bake -n 001 \"high sky\" from $WEST' from '/srv/clouds'\n"
             "  run     bake -n 001 'high sky' from '$WEST'\n"
             "\n"
             "task 2\n"
             "  folder  /srv/clouds\n"
             "  Calling 'bake -n 002 \"low sky\" from $WEST' from '/srv/clouds'\n"
             "  run     bake -n 002 'low sky' from '$WEST'\n",
             "", "exit 0");
}

TEST_F(Expand, ShowsThePathThatIsMadeExecutable) {
  write("bake -n %tn", {"a"});
  expectTool(run({"-a", "/opt/sky/gui"}),
             "task 1\n"
             "  folder  /srv/clouds\n"
             "  chmod   /opt/sky/bake\n"
             "  Calling '/opt/sky/bake -n 1' from '/srv/clouds'\n"
             "  run     /opt/sky/bake -n 1\n",
             "", "exit 0");
}

TEST_F(Expand, ReadsARangeAsTheAdapterDoes) {
  write("bake %tn", {"a", "b", "c", "d"});
  struct Row {
    std::vector<std::string> options;
    std::string numbers;
  };
  const Row rows[] = {
      {{}, "1234"},
      {{"-s", "2"}, "2"},
      {{"-s", "2", "-n", "2"}, "23"},
      {{"-s", "3", "-n", "9"}, "34"},
      {{"-n", "2"}, "12"},
      {{"-s", "0", "-n", "3"}, "12"},
      {{"-s", "5"}, ""},
      {{"-n", "0"}, ""},
      {{"-s", "-1", "-n", "3"}, "1"},
      {{"-s", "2", "-n", "2147483647"}, ""},  // wraps around
      {{"-s", "-2147483648", "-n", "2147483647"}, ""},
  };
  for (const Row& row : rows) {
    const ProcessResult result = run(row.options);
    std::string numbers;
    for (std::size_t at = 0; (at = result.output.find("run     bake ", at)) != std::string::npos;) {
      at += 13;
      numbers += result.output.at(at);
    }
    EXPECT_EQ(numbers, row.numbers) << testing::PrintToString(row.options);
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  }
}

TEST_F(Expand, SaysWhyATaskIsNotStarted) {
  struct Row {
    std::string arguments;
    std::vector<std::string> options;
    std::string output;  // from the task's second line on
  };
  const std::string cannotExpand =
      "  folder  /srv/clouds\n"
      "  refused: Runlet adapter: Process fill-in for arguments failed.\n";
  const Row rows[] = {
      {"bake %3tx",
       {},
       cannotExpand + "  reason: \"%3tx\" is not a placeholder: a %t must be followed by n or p\n"},
      {"bake %j",
       {},
       cannotExpand + "  reason: \"%j\" is not a placeholder: a %j must be followed by p\n"},
      {"bake %9999tp1", {}, cannotExpand + "  reason: the expansion is longer than 3999 bytes\n"},
      {"bake",
       {"-a", "/opt/sky/gui"},
       "  folder  /srv/clouds\n"
       "  ends: terminate called after throwing an instance of 'std::out_of_range'\n"
       "      what():  basic_string::substr: __pos (which is 18446744073709551615) > this->size() "
       "(which is 4)\n"
       "  reason: with an application path (-a) the expanded line must contain a space\n"},
      {"%jp9 \"",
       {},
       "  folder  /srv/clouds\n  Calling 'Undefined \"' from '/srv/clouds'\n"
       "  run     Undefined\n"},
      {"\"\" x",
       {},
       "  folder  /srv/clouds\n  Calling '\"\" x' from '/srv/clouds'\n"
       "  not executed: Runlet adapter: Cannot execute command:'\"\" x':No such file or "
       "directory\n"
       "  reason: the first word of the command line is empty\n"},
      {"\"bake",
       {},
       "  folder  /srv/clouds\n  Calling '\"bake' from '/srv/clouds'\n"
       "  not executed: Runlet adapter: Cannot execute command:'\"bake':No such file or "
       "directory\n"
       "  reason: the command line has no words\n"},
  };
  for (const Row& row : rows) {
    write(row.arguments, {"a"});
    const ProcessResult result = run(row.options);
    EXPECT_EQ(result.output, "task 1\n" + row.output);
    const bool starts = row.output.find("  run ") != std::string::npos;
    EXPECT_EQ(describeStatus(result.waitStatus), starts ? "exit 0" : "exit 1") << row.arguments;
  }
}

TEST_F(Expand, EndsAtTheTaskThatEndsTheRequest) {
  write("bake %jp2", {"a", "b", "c"}, {{"wind", "west"}, {"rain", "no"}});
  replace("<Value>{no}</Value>", "");
  expectTool(
      run({"-s", "2", "-n", "2"}),
      "task 2\n"
      "  folder  /srv/clouds\n"
      "  ends: terminate called after throwing an instance of 'std::out_of_range'\n"
      "      what():  vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)\n"
      "  reason: \"%jp2\" refers to a parameter that has a name but no value: there are 2 names "
      "and 1 values\n"
      "\n"
      "task 3\n"
      "  not reached: task 2 ended the request\n",
      "", "exit 1");
}

TEST_F(Expand, ContinuesAfterATaskThatCannotBeExecuted) {
  write("%tp2", {"a\t\"\"", "b\tbake"});
  const ProcessResult result = run({});
  EXPECT_NE(result.output.find("  run     bake\n"), std::string::npos) << result.output;
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
}

TEST_F(Expand, SaysWhatRightsAreMissing) {
  write("bake", {"a"});
  const std::string begin =
      "task 1\n  folder  /srv/clouds\n  Calling 'bake' from '/srv/clouds'\n  refused: ";
  replace("<uid>1234</uid>", "");
  expectTool(run({}),
             begin +
                 "Missing user name\n"
                 "  reason: the job has no uid, and the request names no user (-u)\n",
             "", "exit 1");
  EXPECT_EQ(describeStatus(run({"-u", "anybody"}).waitStatus), "exit 0");
  replace("<gid>99</gid>", "");
  expectTool(run({}),
             begin +
                 "Cannot set gid -1: No such group\n"
                 "  reason: the job has no group (gid), and the adapter has no default\n",
             "", "exit 1");
}

// The run folder that the adapter derives from the given path.
TEST_F(Expand, SaysWhichRunFolderCannotBeEntered) {
  write("bake", {"a", "b"});
  replace("<WorkingFolder>/srv/clouds</WorkingFolder>", "");
  folder_.makeFolder("in");
  folder_.write("in/job.xml", text_);
  struct Row {
    std::string job;
    std::string output;
    std::string status;
  };
  const std::string refused = "  refused: Runlet adapter: Could not set working folder : ";
  const Row rows[] = {
      {"job.xml",
       "task 1\n  folder  job.xml\n" + refused +
           "'job.xml': Not a directory\n"
           "  reason: the job file is named without a folder and the job has no WorkingFolder, so "
           "the "
           "job file itself is taken for the run folder\n"
           "\ntask 2\n  not reached: task 1 ended the request\n",
       "exit 1"},
      {"in/job.xml",
       "task 1\n  folder  in\n  Calling 'bake' from 'in'\n  run     bake\n\n"
       "task 2\n  folder  in\n" +
           refused +
           "'in': No such file or directory\n"
           "  reason: the run folder is relative, and the previous task has already entered it\n",
       "exit 1"},
      {"in/../job.xml",
       "task 1\n  folder  in/..\n  Calling 'bake' from 'in/..'\n  run     bake\n\n"
       "task 2\n  folder  in/..\n  Calling 'bake' from 'in/..'\n  run     bake\n",
       "exit 0"},
      {"./job.xml",
       "task 1\n  folder  .\n  Calling 'bake' from '.'\n  run     bake\n\n"
       "task 2\n  folder  .\n  Calling 'bake' from '.'\n  run     bake\n",
       "exit 0"},
  };
  for (const Row& row : rows) {
    ProcessOptions options = tool({"expand", row.job});
    options.folder = folder_.path();
    expectTool(runProcess(options), row.output, "", row.status);
  }
}

TEST_F(Expand, ReportsAJobThatIsNotLoadedInTheAdaptersWords) {
  struct Row {
    std::string text;
    std::string error;
    std::string status;
  };
  const Row rows[] = {
      {"<J><cmdData/></J>", "Runlet adapter: Invalid XML job syntax.\n", "exit 1"},
      {"<J><cmdData><Arguments>x</Arguments></cmdData></J>",
       "Runlet adapter: Strip brace failed.\n", "exit 1"},
      {"<J><cmdData><Arguments>}{</Arguments></cmdData></J>",
       "terminate called after throwing an instance of 'std::length_error'\n"
       "  what():  basic_string::_M_replace\n",
       "exit 1"},
      {"<J>", "", "exit 2"},
  };
  for (const Row& row : rows) {
    folder_.write("job.xml", row.text);
    const std::string notXml = "Runlet adapter: Could not load parameter file " + jobFile_ +
                               ". Error='Error reading Element value.'.Exiting.\n";
    expectTool(run({}), "", row.error.empty() ? notXml : row.error, row.status);
  }
  expectTool(
      runTool({"expand", "/nowhere/job.xml"}), "",
      "Runlet adapter: Could not load parameter file /nowhere/job.xml. Error='Failed to open "
      "file'.Exiting.\n",
      "exit 2");
}

TEST_F(Expand, WritesJson) {
  write("bake \"%tp1\" %jp1", {"high sky", "\"b\xff\t"}, {{"wind", "west"}});
  const std::string head =
      "{\"format\":\"runlet-job expand\",\"version\":1,\"job\":\"" + jobFile_ +
      "\",\"outcome\":\"loaded\",\"message\":null,\"bytes\":false, \"tasks\": [";
  expectTool(
      run({"--json", "-a", "/x/y"}),
      head +
          "\n {\"task\":1,\"outcome\":\"starts\",\"folder\":\"/srv/clouds\",\"chmod\":\"/x/bake\","
          "\"calling\":\"Calling '/x/bake \\\"high sky\\\" west' from '/srv/clouds'\","
          "\"commandLine\":\"/x/bake \\\"high sky\\\" west\",\"argv\":[\"/x/bake\",\"high sky\","
          "\"west\"],\"message\":null,\"reason\":null,\"bytes\":false},"
          "\n {\"task\":2,\"outcome\":\"starts\",\"folder\":\"/srv/clouds\",\"chmod\":\"/x/bake\","
          "\"calling\":\"Calling '/x/bake \\\"\\\"b\xc3\xbf\\\" west' from '/srv/clouds'\","
          "\"commandLine\":\"/x/bake \\\"\\\"b\xc3\xbf\\\" west\",\"argv\":[\"/x/bake\",\"\","
          "\"b\xc3\xbf\\\"\",\"west\"],\"message\":null,\"reason\":null,\"bytes\":true}"
          "\n], \"leftOut\": 0}\n",
      "", "exit 0");
}

TEST_F(Expand, WritesJsonForWhatIsNotStarted) {
  write("bake %tx", {"a", "b"});
  const std::string head =
      "{\"format\":\"runlet-job expand\",\"version\":1,\"job\":\"" + jobFile_ + "\",\"outcome\":";
  expectTool(
      run({"--json"}),
      head +
          "\"loaded\",\"message\":null,\"bytes\":false, \"tasks\": ["
          "\n {\"task\":1,\"outcome\":\"refused\",\"folder\":\"/srv/clouds\",\"chmod\":null,"
          "\"calling\":null,\"commandLine\":null,\"argv\":null,\"message\":\"Runlet adapter: "
          "Process fill-in for arguments failed.\",\"reason\":\"\\\"%tx\\\" is not a "
          "placeholder: a %t must be followed by n or p\",\"bytes\":false},"
          "\n {\"task\":2,\"outcome\":\"notReached\",\"folder\":null,\"chmod\":null,"
          "\"calling\":null,\"commandLine\":null,\"argv\":null,\"message\":null,\"reason\":"
          "\"task 1 ended the request\",\"bytes\":false}"
          "\n], \"leftOut\": 0}\n",
      "", "exit 1");
  folder_.write("job.xml", "<J/>");
  expectTool(run({"--json"}),
             head +
                 "\"refused\",\"message\":\"Runlet adapter: Invalid XML job syntax.\","
                 "\"bytes\":false, \"tasks\": [\n], \"leftOut\": 0}\n",
             "", "exit 1");
}

}  // namespace
}  // namespace runlet_test
