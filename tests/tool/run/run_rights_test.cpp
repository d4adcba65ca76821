// The user of the tasks of runlet-job run, and what they inherit from root.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "adapter_test.h"
#include "pseudo_terminal.h"
#include "rights_of_another.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

// A job whose task is the probe, in a run folder to which another user may write.
class RunRights : public AdapterTest {
 protected:
  RunRights() {
    std::filesystem::copy_file(probePath, probe_);
    job_.arguments = command_;
    job_.set("WorkingFolder", work_).set("TaskTimeout", "30");
  }

  void setIds(const std::string& uid, const std::string& gid) {
    job_.set("uid", uid).set("gid", gid);
    write(job_);
  }

  ProcessOptions options(const Strings& more = {}) const {
    Strings words = {"run", jobFile_};
    words.insert(words.end(), more.begin(), more.end());
    return tool(words);
  }

  // With a fault of tests/support/faults.cpp, also in the process of the task.
  ProcessOptions withFault(const std::string& fault, const Strings& more = {}) const {
    ProcessOptions started = options(more);
    started.arguments.insert(started.arguments.end(), {"--keep-env", "RUNLET_FAULT"});
    started.environment.insert(started.environment.end(),
                               {{"LD_PRELOAD", faultsPath},
                                {"RUNLET_FAULT", fault},
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    return started;
  }

  void expectSuccess(const ProcessOptions& started, const std::string& error = "") const {
    ProcessResult result = runProcess(started);
    const std::string line = "task 1: succeeded in ([0-9]+ ms|[0-9.]+ s) \\(1 of 1\\)\n";
    EXPECT_TRUE(std::regex_search(result.error, std::regex(line))) << result.error;
    result.error = std::regex_replace(result.error, std::regex(line), "");
    expectTool(result, "task 1: succeeded: " + command_ + "\n1 task: 1 succeeded\n", error,
               "exit 0");
  }

  std::string log() const {
    return batchFolder(work_, "job") + "/job-1.log";
  }

  Report workReport() {
    folder_.write("report", readFile(work_ + "/report"));
    unlink((work_ + "/report").c_str());
    return report();
  }

  const std::string work_ = folder_.makeFolder("work", 0777);
  const std::string probe_ = folder_.file("probe");
  const std::string command_ = probe_ + " report";
  Job job_;
};

TEST_F(RunRights, IncludeNoVariableWithoutAName) {
  write(job_);
  for (const std::string name : {"A=b", "=", ""}) {
    expectTool(
        runProcess(options({"--keep-env", name})), "",
        "runlet-job: --keep-env: " + name + " is not a variable name\nSee: runlet-job run --help\n",
        "exit 2");
  }
  EXPECT_FALSE(std::filesystem::exists(log()));
}

class RunRightsOfRoot : public RunRights {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    setIds("71", "72");
  }
};

TEST_F(RunRightsOfRoot, AreThoseOfTheUserAlone) {
  const struct {
    const char* fault;
    const char* groups;
  } rows[] = {{"none", " "}, {"known-user", "7 73 "}};
  setIds("4200071", "72");
  for (const auto& row : rows) {
    ProcessOptions started = withFault(row.fault);
    started.prepare = setStrangeGroups;
    expectSuccess(started);
    Report lines = workReport();
    EXPECT_EQ(lines["Uid:"], Strings{fourTimes(4200071)});
    EXPECT_EQ(lines["Gid:"], Strings{fourTimes(72)});
    EXPECT_EQ(lines["Groups:"], Strings{row.groups});
    expectNoCapabilities(lines);
  }
}

// Where the task can enter and write, so can the process that prepares its folders.
TEST_F(RunRightsOfRoot, IncludeFoldersOfTheGroupsOfTheUser) {
  setIds("4200071", "72");
  ASSERT_EQ(chown(work_.c_str(), 0, 7), 0);
  ASSERT_EQ(chmod(work_.c_str(), 0770), 0);
  expectSuccess(withFault("known-user"));
  expectTool(runProcess(withFault("none")), "",
             "runlet-job: run: cannot enter the run folder " + work_ + ": Permission denied\n",
             "exit 2");
}

TEST_F(RunRightsOfRoot, HaveTheEnvironmentOfTheUser) {
  setIds("4200071", "72");
  expectEnvironmentOfTheUser(
      [this](const std::string& fault, const Strings& words, const Variables& variables) {
        ProcessOptions started = withFault(fault, words);
        started.environment.insert(started.environment.end(), variables.begin(), variables.end());
        expectSuccess(started);
        return workReport();
      });
}

TEST_F(RunRightsOfRoot, CloseOpenFilesOfRoot) {
  const std::string secret = folder_.write("secret", "of root", 0600);
  for (const char* redirect : {"yes", "no"}) {
    job_.set("redirectStderr", redirect);
    write(job_);
    ProcessOptions started = options();
    started.prepare = [&] { openAs(6, secret, O_RDONLY); };
    expectSuccess(started);
    EXPECT_EQ(workReport()["descriptor"], (Strings{"0 /dev/null", "1 " + log(), "2 " + log()}));
  }
}

// Not even if the starter leads its session. Otherwise a task could read typed input, and inject
// some.
TEST_F(RunRightsOfRoot, IncludeNoTerminal) {
  for (const char* uid : {"71", "0"}) {
    setIds(uid, "72");
    const Terminal terminal;
    ProcessOptions started = options();
    started.prepare = [&] {
      const int opened = open(terminal.name().c_str(), O_RDWR);
      for (int stream = 0; stream <= STDERR_FILENO; ++stream) dup2(opened, stream);
      close(opened);
    };
    EXPECT_EQ(describeStatus(runProcess(started).waitStatus), "exit 0");
    Report lines = workReport();
    EXPECT_EQ(lines["descriptor"], (Strings{"0 /dev/null", "1 " + log(), "2 " + log()})) << uid;
    EXPECT_EQ(lines["terminal"], Strings{"no"}) << uid;
    EXPECT_EQ(lines["session"], lines["pid"]) << uid;
  }
}

TEST_F(RunRightsOfRoot, IncludeNoAmbientCapabilities) {
  const std::string program = folder_.file("runlet-job");
  std::filesystem::copy_file(toolPath, program);
  ProcessOptions started = options();
  started.program = program;
  started.prepare = [] { haveAmbientCapabilities(otherId); };
  expectSuccess(started,
                "runlet-job: run: the tasks run as user 65534 and group 65534 instead of the job's "
                "user 71 and group 72: only root can switch\n");
  Report lines = workReport();
  expectNoCapabilities(lines);
  EXPECT_EQ(lines["Uid:"], Strings{fourTimes(otherId)});
}

TEST_F(RunRightsOfRoot, IncludeASessionKeyringOfTheirOwn) {
  const std::string keyring = folder_.file("keyring");
  for (const char* uid : {"71", "0"}) {
    setIds(uid, "72");
    ProcessOptions started = options();
    started.prepare = [&] { joinNewKeyring(keyring); };
    EXPECT_EQ(describeStatus(runProcess(started).waitStatus), "exit 0");
    expectKeyring(keyring, workReport(), readFile(log()), std::string(uid) != "0");
  }
}

// For a moment the process belongs to the user while its memory is still root's.
TEST_F(RunRightsOfRoot, LeaveNoCoreFileOfRootsMemory) {
  EXPECT_EQ(describeStatus(runProcess(withFault("core-files")).waitStatus), "exit 0");
  EXPECT_EQ(withoutKeyringNote(readFile(log())), calling(command_, work_) + noCoreFiles);
}

}  // namespace
}  // namespace runlet_test
