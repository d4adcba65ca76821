// The user and rights with which runlet-job exec runs a task.

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "exec_run.h"
#include "rights_of_another.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

// The note for task `number`; `wanted` are the ids of the job.
std::string note(int number, unsigned uid, unsigned gid, const std::string& wanted) {
  return "runlet-job: exec: task " + std::to_string(number) + " runs as user " +
         std::to_string(uid) + " and group " + std::to_string(gid) + " instead of the job's " +
         wanted + ": only root can switch\n";
}

class ExecRights : public ExecTest {
 protected:
  ExecRights() {
    std::filesystem::copy_file(probePath, probe_);
    job_.arguments = command_;
    job_.set("WorkingFolder", work_);
  }

  Report workReport() {
    folder_.write("report", readFile(work_ + "/report"));
    return report();
  }

  void expectRanAs(unsigned uid, unsigned gid) {
    Report lines = workReport();
    EXPECT_EQ(lines["Uid:"], Strings{fourTimes(uid)});
    EXPECT_EQ(lines["Gid:"], Strings{fourTimes(gid)});
    EXPECT_EQ(lines["Umask:"], Strings{"0022"});
    unlink((work_ + "/report").c_str());
  }

  void setIds(const std::string& uid, const std::string& gid) {
    job_.remove("uid").remove("gid");
    if (!uid.empty()) job_.set("uid", uid);
    if (!gid.empty()) job_.set("gid", gid);
    write(job_);
  }

  // In a run folder to which another user may write.
  const std::string work_ = folder_.makeFolder("work", 0777);
  const std::string probe_ = folder_.file("probe");
  const std::string command_ = probe_ + " report";
  const std::string calling_ = calling(command_, work_);
  Job job_;
};

TEST_F(ExecRights, HaveNoDefaultForTheGroup) {
  for (const char* uid : {"", "0", "65534", "7"}) {
    for (const char* gid : {"", "-1", "4294967295", "99999999999999999999"}) {
      setIds(uid, gid);
      for (const ProcessOptions& options : {exec(task()), unprivilegedExec(task())}) {
        expectTool(runProcess(options), calling_, "Cannot set gid -1: No such group\n", "exit 125");
      }
    }
  }
  EXPECT_FALSE(std::filesystem::exists(work_ + "/report"));
}

TEST_F(ExecRights, OfTheCallerNeedNoNote) {
  const unsigned uid = geteuid() == 0 ? otherId : geteuid();
  const unsigned gid = geteuid() == 0 ? otherId : getegid();
  for (const std::string& ofJob : {std::to_string(uid), std::string(), std::string("-1")}) {
    setIds(ofJob, std::to_string(gid));
    expectTool(runProcess(unprivilegedExec(task())), calling_, "", "exit 0");
    expectRanAs(uid, gid);
  }
}

TEST_F(ExecRights, OfOthersCannotBeTakenWithoutRootAndANoteSaysSo) {
  const unsigned uid = geteuid() == 0 ? otherId : geteuid();
  const unsigned gid = geteuid() == 0 ? otherId : getegid();
  const std::string ownUid = std::to_string(uid);
  const std::string ownGid = std::to_string(gid);
  const struct {
    std::string uid;
    std::string gid;
    std::string wanted;
  } rows[] = {
      {"71", "72", "user 71 and group 72"},
      {"71", ownGid, "user 71 and group " + ownGid},
      {ownUid, "72", "user " + ownUid + " and group 72"},
      {"0", "0", "user 0 and group 0"},
      {"", "72", "group 72"},
      {"-2", "-2", "user -2 and group -2"},
  };
  job_.tasks = {"a", "b"};
  for (const auto& row : rows) {
    setIds(row.uid, row.gid);
    expectTool(runProcess(unprivilegedExec(task(2))), calling_, note(2, uid, gid, row.wanted),
               "exit 0");
    expectRanAs(uid, gid);
  }
}

// In a log the note comes after the "Calling" line and before the output of the program.
TEST_F(ExecRights, AreNotedOnTheOriginalStandardError) {
  const unsigned uid = geteuid() == 0 ? otherId : geteuid();
  const unsigned gid = geteuid() == 0 ? otherId : getegid();
  const std::string log = folder_.write("log", "", 0666);
  job_.arguments = "/bin/sh -c \"echo err >&2; echo out\"";
  setIds("71", "72");
  ProcessOptions options = unprivilegedExec(task());
  const std::function<void()> becomeOther = options.prepare;
  options.prepare = [=] {
    if (becomeOther) becomeOther();
    openAs(STDOUT_FILENO, log, O_WRONLY | O_APPEND);
    dup2(STDOUT_FILENO, STDERR_FILENO);
  };
  EXPECT_EQ(describeStatus(runProcess(options).waitStatus), "exit 0");
  EXPECT_EQ(readFile(log), calling(job_.arguments, work_) +
                               note(1, uid, gid, "user 71 and group 72") + "err\nout\n");

  job_.arguments = "./missing x";
  setIds("71", "72");
  expectTool(runProcess(unprivilegedExec(task())), calling(job_.arguments, work_),
             note(1, uid, gid, "user 71 and group 72") +
                 cannotExecute(job_.arguments, "No such file or directory"),
             "exit 127");
}

// Entering the run folder and making the program executable use the caller's rights.
TEST_F(ExecRights, OfTheCallerApplyToFolderAndProgram) {
  const std::string bin = folder_.makeFolder("bin") + "/";
  folder_.write("bin/render", "#!/bin/sh\nexit 0\n", 0700);
  job_.arguments = "render x";
  setIds("0", "0");
  const ProcessOptions options = unprivilegedExec(task(1, {"-a", bin}));
  const ProcessResult result = runProcess(options);
  if (geteuid() != 0) return;
  expectTool(result, calling(bin + "render x", work_),
             chmodError(bin + "render", options.prepare) +
                 note(1, otherId, otherId, "user 0 and group 0") +
                 cannotExecute(bin + "render x", "Permission denied"),
             "exit 126");
  EXPECT_EQ(modeOf(bin + "render"), 0700);
}

// Even if the caller is not root, for whom it would make no difference.
TEST_F(ExecRights, AreNotRootsForAnIdThatDoesNotSayZero) {
  const std::string own = std::to_string(getegid());
  const struct {
    const char* uid;
    std::string gid;
    const char* name;
  } rows[] = {
      {"ann", own, "uid"},   {"0x3e8", own, "uid"}, {"4294967296", own, "uid"},
      {"0", "staff", "gid"}, {"-", "staff", "uid"}, {"71", "0.5", "gid"},
  };
  for (const auto& row : rows) {
    setIds(row.uid, row.gid);
    const std::string refusal = std::string("runlet-job: task not started: the ") + row.name +
                                " of " + jobFile_ +
                                " means root but is not a plain 0; see: runlet-job explain RJ034\n";
    expectTool(become(), "", refusal, "exit 125");
    expectTool(runProcess(unprivilegedExec(task())), "", refusal, "exit 125");
  }
  EXPECT_FALSE(std::filesystem::exists(work_ + "/report"));
}

// The rest requires root: the change of identity is real.
class ExecRightsOfRoot : public ExecRights {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
  }

  // A fault of tests/support/faults.cpp.
  ProcessOptions withFault(const std::string& fault, const Strings& more = {}) const {
    ProcessOptions options = exec(task(1, more));
    options.arguments.insert(options.arguments.end(), {"--keep-env", "RUNLET_FAULT"});
    options.environment.insert(options.environment.end(),
                               {{"LD_PRELOAD", faultsPath},
                                {"RUNLET_FAULT", fault},
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    return options;
  }
};

TEST_F(ExecRightsOfRoot, BecomeTheJobsUserAndGroup) {
  const struct {
    const char* uid;
    const char* gid;
    unsigned ranAsUid;
    unsigned ranAsGid;
  } rows[] = {
      {"65534", "65534", 65534, 65534},
      {"71", "72", 71, 72},
      {"0", "72", 0, 72},
      {"71", "0", 71, 0},
      {"0", "0", 0, 0},
      {"4294967367", "72y", 71, 72},
      {"-2", "-3", 4294967294, 4294967293},
  };
  for (const auto& row : rows) {
    setIds(row.uid, row.gid);
    // Otherwise the task would write its coverage counters here.
    expectTool(become(1, {"--keep-env", "LLVM_PROFILE_FILE"}), calling_, "", "exit 0");
    expectRanAs(row.ranAsUid, row.ranAsGid);
  }
}

TEST_F(ExecRightsOfRoot, HaveNoGroupOfRootForAnotherUser) {
  setIds("4200071", "72");
  ProcessOptions options = exec(task());
  options.prepare = setStrangeGroups;
  expectTool(runProcess(options), calling_, "", "exit 0");
  EXPECT_EQ(workReport()["Groups:"], Strings{" "});

  setIds("0", "72");
  expectTool(runProcess(options), calling_, "", "exit 0");
  EXPECT_EQ(workReport()["Groups:"], Strings{"5 12345 "});
}

TEST_F(ExecRightsOfRoot, IncludeTheGroupsOfTheUser) {
  setIds("71", "72");
  ProcessOptions options = withFault("known-user");
  options.prepare = setStrangeGroups;
  expectTool(runProcess(options), calling_, "", "exit 0");
  EXPECT_EQ(workReport()["Groups:"], Strings{"7 73 "});
}

TEST_F(ExecRightsOfRoot, HaveTheEnvironmentOfTheUser) {
  setIds("4200071", "72");
  expectEnvironmentOfTheUser(
      [this](const std::string& fault, const Strings& words, const Variables& variables) {
        ProcessOptions options = withFault(fault, words);
        options.environment.insert(options.environment.end(), variables.begin(), variables.end());
        expectTool(runProcess(options), calling_, "", "exit 0");
        return workReport();
      });
}

TEST_F(ExecRightsOfRoot, CloseOpenFilesOfRoot) {
  const std::string secret = folder_.write("secret", "of root", 0600);
  for (const char* redirect : {"yes", "no"}) {
    job_.set("redirectStderr", redirect);
    setIds("71", "72");
    ProcessOptions options = exec(task());
    options.prepare = [&] { openAs(6, secret, O_RDONLY); };
    expectTool(runProcess(options), calling_, "", "exit 0");
    EXPECT_EQ(workReport()["descriptor"].size(), 3U);
  }
}

TEST_F(ExecRightsOfRoot, DoNotIncludeAmbientCapabilities) {
  setIds("71", "72");
  ProcessOptions options = unprivilegedExec(task());
  options.prepare = [] { haveAmbientCapabilities(otherId); };
  expectTool(runProcess(options), calling_, note(1, otherId, otherId, "user 71 and group 72"),
             "exit 0");
  expectNoCapabilities(workReport());
  expectRanAs(otherId, otherId);
}

TEST_F(ExecRightsOfRoot, AreNoMoreThanTheUsersOrNothingIsStarted) {
  const std::string more =
      "runlet-job: task not started: it would have more rights than user 71 and group 72\n";
  const struct {
    const char* fault;
    std::string error;
  } rows[] = {
      {"keeps-root", more},
      {"keeps-group", more},
      {"keeps-capability", more},
      {"capget-refused", more},
      {"no-setgroups", "runlet-job: cannot set the groups of user 71: Operation not permitted\n"},
      {"keyring-quota", "runlet-job: no session keyring for the task: Disk quota exceeded\n"},
  };
  setIds("71", "72");
  for (const auto& row : rows) {
    expectTool(runProcess(withFault(row.fault)), calling_, row.error, "exit 125");
    EXPECT_FALSE(std::filesystem::exists(work_ + "/report")) << row.fault;
  }
}

TEST_F(ExecRightsOfRoot, IncludeASessionKeyringOfTheirOwn) {
  const std::string keyring = folder_.file("keyring");
  for (const char* uid : {"71", "0"}) {
    setIds(uid, "72");
    ProcessOptions options = exec(task());
    options.prepare = [&] { joinNewKeyring(keyring); };
    const ProcessResult result = runProcess(options);
    expectTool(result, calling_, "", "exit 0");
    expectKeyring(keyring, workReport(), result.error, std::string(uid) != "0");
  }
}

// Keyrings are dispensable, with a note.
TEST_F(ExecRightsOfRoot, IncludeNoKeyringOfRoot) {
  const struct {
    const char* fault;
    int error;
  } rows[] = {
      {"no-keyrings", ENOSYS},
      {"keyrings-refused", EPERM},
      {"keyrings-forbidden", EACCES},
  };
  for (const auto& row : rows) {
    setIds("71", "72");
    const ProcessResult result = runProcess(withFault(row.fault));
    EXPECT_EQ(result.output, calling_);
    EXPECT_EQ(result.error, "runlet-job: no session keyring for the task: " +
                                std::string(std::strerror(row.error)) +
                                "; it keeps that of its starter\n");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    expectRanAs(71, 72);
    setIds("0", "0");
    expectTool(runProcess(withFault(row.fault)), calling_, "", "exit 0");
    expectRanAs(0, 0);
  }
}

// For a moment the process belongs to the user while its memory is still root's.
TEST_F(ExecRightsOfRoot, LeaveNoCoreFileOfRootsMemory) {
  setIds("71", "72");
  expectTool(runProcess(withFault("core-files")), calling_, noCoreFiles, "exit 0");
}

TEST_F(ExecRightsOfRoot, NeedAUser) {
  for (const char* uid : {"", "-1", "4294967295"}) {
    setIds(uid, "72");
    expectTool(become(), calling_, "Missing user name\n", "exit 125");
  }
  EXPECT_FALSE(std::filesystem::exists(work_ + "/report"));
}

TEST_F(ExecRightsOfRoot, GiveFilesTheirOwnerGroupAndMode) {
  job_.arguments = "/bin/mkdir made";
  job_.set("umask", "63");
  setIds("71", "72");
  expectTool(become(), calling("/bin/mkdir made", work_), "", "exit 0");
  struct stat status {};
  ASSERT_EQ(stat((work_ + "/made").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 71U);
  EXPECT_EQ(status.st_gid, 72U);
  EXPECT_EQ(modeOf(work_ + "/made"), 0700);
}

// The folder is entered, and the program made executable, with the rights of the starter.
TEST_F(ExecRightsOfRoot, AreTakenAfterFolderAndChmod) {
  const std::string closed = folder_.makeFolder("closed", 0700);
  const std::string bin = folder_.makeFolder("bin") + "/";
  folder_.write("bin/render", "#!/bin/sh\nid -u\npwd\n", 0600);
  job_.arguments = "render x";
  job_.set("WorkingFolder", closed);
  setIds("71", "72");
  expectTool(become(1, {"-a", bin}), calling(bin + "render x", closed) + "71\n" + closed + "\n", "",
             "exit 0");
  EXPECT_EQ(modeOf(bin + "render"), 0755);
}

// With any other path the job would choose the program.
TEST_F(ExecRightsOfRoot, AreNotLentWithoutTheFolderOfTheApplication) {
  const std::string secret = folder_.write("secret", "", 0600);
  job_.arguments = secret + " x";
  setIds("71", "72");
  for (const char* application : {"tool", "./tool", "bin/tool"}) {
    expectTool(become(1, {"-a", application}), "",
               std::string("runlet-job: -a ") + application +
                   ": a task of another user needs a full path\n",
               "exit 125");
  }
  EXPECT_EQ(modeOf(secret), 0600);
}

TEST_F(ExecRightsOfRoot, AreNotLentToATextOfTheJob) {
  const std::string bin = folder_.makeFolder("bin") + "/";
  folder_.write("secret", "", 0600);
  folder_.makeFolder("bin/folder", 0700);
  ASSERT_EQ(symlink(folder_.file("secret").c_str(), (bin + "link").c_str()), 0);
  ASSERT_EQ(chmod(folder_.write("bin/privileged", "").c_str(), 04755), 0);
  const struct {
    std::string program;
    const char* what;
  } rows[] = {
      {"render>made", "a root shell would interpret the path "},
      {"$(touch${IFS}made)", "a root shell would interpret the path "},
      {"../secret", "root would change the mode of "},
      {"x/../../secret", "root would change the mode of "},
      {"..", "root would change the mode of "},
      {".", "root would change the mode of "},
      {"folder", "root would change the mode of "},
      {"link", "root would change the mode of "},
      {"privileged", "root would change the mode of "},
  };
  setIds("71", "72");
  for (const auto& row : rows) {
    job_.arguments = row.program + " x";
    write(job_);
    expectTool(become(1, {"-a", bin}), "",
               "runlet-job: task not started: with -a " + (row.what + bin) + row.program + "\n",
               "exit 125");
  }
  EXPECT_FALSE(std::filesystem::exists(work_ + "/made"));
  EXPECT_EQ(modeOf(folder_.file("secret")), 0600);
  EXPECT_EQ(modeOf(bin + "folder"), 0700);
  EXPECT_EQ(modeOf(bin + "privileged"), 04755);
}

// The program is searched for with the rights of the task.
TEST_F(ExecRightsOfRoot, ApplyToTheSearchForTheProgram) {
  folder_.makeFolder("closed", 0700);
  folder_.write("closed/render", "#!/bin/sh\nexit 0\n", 0755);
  job_.arguments = folder_.file("closed/render") + " x";
  setIds("71", "72");
  expectTool(become(), calling(job_.arguments, work_),
             cannotExecute(job_.arguments, "Permission denied"), "exit 126");
}

TEST_F(ExecRightsOfRoot, ThatTheSystemRefusesEndIt) {
  const struct {
    unsigned long missing;
    const char* error;
  } rows[] = {
      {CAP_SETGID, "Cannot set gid 72: Operation not permitted\n"},
      {CAP_SETUID, "Cannot set uid 71: Operation not permitted\n"},
  };
  setIds("71", "72");
  for (const auto& row : rows) {
    ProcessOptions options = exec(task());
    options.prepare = [&] {
      if (prctl(PR_CAPBSET_DROP, row.missing, 0, 0, 0) != 0) _exit(97);
    };
    expectTool(runProcess(options), calling_, row.error, "exit 125");
  }
  EXPECT_FALSE(std::filesystem::exists(work_ + "/report"));
}

}  // namespace
}  // namespace runlet_test
