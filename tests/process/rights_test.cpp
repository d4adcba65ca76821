#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "adapter_test.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

class Rights : public AdapterTest {
 protected:
  Rights() {
    job_.arguments = "/bin/echo ran";
  }

  // Asserts that nothing is started. The "Calling" line is printed before the rights are taken.
  void expectNotStarted(const ProcessResult& result, const std::string& error) const {
    expectResult(result, calling("/bin/echo ran", folder()), error, "exit 255");
  }

  void expectRan(const ProcessResult& result) const {
    expectResult(result, calling("/bin/echo ran", folder()) + processStarted + "ran\n", "",
                 "exit 0");
  }

  // The first tasks of the job for a user looked up in the faulty system.
  ProcessResult runWithFault(const std::string& fault, int count = 1) const {
    Strings arguments = newTask(1, count);
    arguments.insert(arguments.end(), {"-u", "somebody"});
    return runProcess(withFault(fault, arguments));
  }

  ProcessResult runAs(const std::string& user) const {
    Strings arguments = newTask();
    arguments.insert(arguments.end(), {"-u", user});
    return run(arguments);
  }

  Job job_;
};

TEST_F(Rights, HaveNoDefaultForTheGroup) {
  job_.remove("gid");
  write(job_);
  expectNotStarted(run(newTask()), "Cannot set gid -1: No such group");
  job_.remove("uid");
  write(job_);
  expectNotStarted(runAs("root"), "Cannot set gid -1: No such group");
  job_.set("gid", "4294967295");
  write(job_);
  expectNotStarted(run(newTask()), "Cannot set gid -1: No such group");
}

TEST_F(Rights, NeedAUserIdOrAUserName) {
  job_.remove("uid");
  write(job_);
  expectNotStarted(run(newTask()), "Missing user name");
  job_.set("uid", "-1");
  write(job_);
  expectNotStarted(run(newTask()), "Missing user name");
}

TEST_F(Rights, LookTheUserUpByName) {
  const passwd* self = getpwuid(getuid());
  if (self == nullptr) GTEST_SKIP() << "this user has no name";
  job_.remove("uid");
  write(job_);
  expectRan(runAs(self->pw_name));
}

TEST_F(Rights, LookTheUserUpOnceInARequest) {
  job_.remove("uid");
  job_.tasks.assign(2, "t");
  write(job_);
  const std::string lines = calling("/bin/echo ran", folder()) + processStarted + "ran\n";
  expectResult(runWithFault("one-lookup", 2), lines + lines, "", "exit 0");
}

TEST_F(Rights, IgnoreTheUserNameIfThereIsAnId) {
  write(job_);
  expectRan(runAs("no such user at all"));
}

TEST_F(Rights, ReportAnUnknownUser) {
  job_.remove("uid");
  write(job_);
  const char* name = "no such user at all";
  errno = 0;
  ASSERT_EQ(getpwnam(name), nullptr);
  const std::string reason = errno != 0 ? std::strerror(errno) : "No such user";
  expectNotStarted(runAs(name),
                   std::string("Cannot obtain info for user ").append(name).append(":") + reason);
}

TEST_F(Rights, ReportWhyALookupFails) {
  job_.remove("uid");
  write(job_);
  expectNotStarted(runWithFault("user-database"),
                   "Cannot obtain info for user somebody:Input/output error");
  expectNotStarted(runWithFault("no-such-user"),
                   "Cannot obtain info for user somebody:No such user");
}

TEST_F(Rights, RefuseALookedUpIdOfMinusOne) {
  job_.remove("uid");
  write(job_);
  expectNotStarted(runWithFault("user-id-minus-one"), "Cannot set uid -1: No such user");
}

TEST_F(Rights, CannotBeChangedWithoutPrivilege) {
  const unsigned id = geteuid() == 0 ? otherId : getuid();
  const unsigned group = geteuid() == 0 ? otherId : getgid();
  job_.set("uid", "0").set("gid", "0");
  write(job_);
  expectNotStarted(runProcess(unprivileged(newTask())),
                   "Cannot set gid 0: Operation not permitted");
  job_.set("gid", std::to_string(group));
  write(job_);
  expectNotStarted(runProcess(unprivileged(newTask())),
                   "Cannot set uid 0: Operation not permitted");
  job_.set("uid", std::to_string(id));
  write(job_);
  expectRan(runProcess(unprivileged(newTask())));
}

TEST_F(Rights, OfTheCallerNeedNoPrivilegeForAnyNumberOfTasks) {
  job_.tasks.assign(3, "t");
  write(job_);
  const std::string lines = calling("/bin/echo ran", folder()) + processStarted + "ran\n";
  expectResult(run(newTask(1, 3)), lines + lines + lines, "", "exit 0");
}

TEST_F(Rights, IncludeTheMaskAsAPlainNumber) {
  const struct {
    const char* mask;  // null = no such element
    const char* octal;
  } rows[] = {{"18", "0022"}, {"022", "0026"}, {nullptr, "0000"}, {"0", "0000"},
              {"63", "0077"}, {"511", "0777"}, {"-1", "0777"},    {"512", "0000"}};
  for (const auto& row : rows) {
    Job job;
    // Under some masks the task could not write its own report.
    job.arguments = "/bin/grep Umask /proc/self/status";
    job.remove("umask");
    if (row.mask != nullptr) job.set("umask", row.mask);
    write(job);
    expectResult(run(newTask()),
                 calling(job.arguments, folder()) + processStarted + "Umask:\t" + row.octal + "\n",
                 "", "exit 0");
  }
}

// The rest requires root: the change of identity is real.

class RightsOfRoot : public Rights {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    probe_ = folder_.file("probe");
    std::filesystem::copy_file(probePath, probe_);
    work_ = folder_.makeFolder("work", 0777);
    job_.set("WorkingFolder", work_);
    job_.set("uid", std::to_string(otherId)).set("gid", std::to_string(otherId));
  }

  // A command that reports to a file in the run folder, to which another user may write.
  std::string command() const {
    return probe_ + " report";
  }

  Report workReport() {
    folder_.write("report", readFile(work_ + "/report"));
    return report();
  }

  std::string probe_;
  std::string work_;
};

TEST_F(RightsOfRoot, BecomeTheJobsUserAndGroup) {
  job_.arguments = command();
  write(job_);
  expectResult(run(newTask()), calling(command(), work_) + processStarted, "", "exit 0");
  Report lines = workReport();
  EXPECT_EQ(lines["Uid:"], Strings{fourTimes(otherId)});
  EXPECT_EQ(lines["Gid:"], Strings{fourTimes(otherId)});
  EXPECT_EQ(lines["Umask:"], Strings{"0022"});
  EXPECT_EQ(lines["folder"], Strings{work_});
}

TEST_F(RightsOfRoot, LeaveSupplementaryGroupsAlone) {
  job_.arguments = command();
  write(job_);
  ProcessOptions options = adapter(newTask());
  options.prepare = [] {
    const gid_t groups[] = {4, 24, 12345};
    if (setgroups(3, groups) != 0) _exit(97);
  };
  expectResult(runProcess(options), calling(command(), work_) + processStarted, "", "exit 0");
  EXPECT_EQ(workReport()["Groups:"], Strings{"4 24 12345 "});
}

TEST_F(RightsOfRoot, TakeTheUserFromItsNameAndTheGroupFromTheJob) {
  const passwd* entry = getpwnam("daemon");
  if (entry == nullptr) FAIL() << "no user daemon";
  const unsigned uid = entry->pw_uid;
  ASSERT_NE(entry->pw_gid, 100U);
  job_.arguments = command();
  job_.remove("uid").set("gid", "100");
  job_.tasks.assign(2, "t");
  write(job_);
  Strings arguments = newTask(1, 2);
  arguments.insert(arguments.end(), {"-u", "daemon"});
  const std::string lines = calling(command(), work_) + processStarted;
  expectResult(run(arguments), lines + lines, "", "exit 0");
  Report reported = workReport();
  EXPECT_EQ(reported["Uid:"], Strings{fourTimes(uid)});
  EXPECT_EQ(reported["Gid:"], Strings{fourTimes(100)});
}

TEST_F(RightsOfRoot, ApplyToAllTasksOfARequest) {
  job_.arguments = probe_ + " report%tn";
  job_.tasks.assign(3, "t");
  write(job_);
  EXPECT_EQ(describeStatus(run(newTask(1, 3)).waitStatus), "exit 0");
  for (const char* name : {"/report1", "/report2", "/report3"}) {
    folder_.write("report", readFile(work_ + name));
    Report lines = report();
    EXPECT_EQ(lines["Uid:"], Strings{fourTimes(otherId)}) << name;
    EXPECT_EQ(lines["Gid:"], Strings{fourTimes(otherId)}) << name;
    EXPECT_EQ(lines["Umask:"], Strings{"0022"}) << name;
  }
}

TEST_F(RightsOfRoot, GiveFilesTheirOwnerGroupAndMode) {
  const struct {
    const char* mask;
    int fileMode;
    int folderMode;
  } rows[] = {{"18", 0644, 0755}, {"022", 0640, 0751}, {"63", 0600, 0700}, {"0", 0666, 0777}};
  for (const auto& row : rows) {
    job_.arguments = "/bin/sh -c \">file; mkdir folder\"";
    job_.set("umask", row.mask).set("gid", "100");
    write(job_);
    EXPECT_EQ(describeStatus(run(newTask()).waitStatus), "exit 0");
    struct stat status {};
    ASSERT_EQ(stat((work_ + "/file").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, otherId);
    EXPECT_EQ(status.st_gid, 100U);
    EXPECT_EQ(modeOf(work_ + "/file"), row.fileMode);
    EXPECT_EQ(modeOf(work_ + "/folder"), row.folderMode);
    unlink((work_ + "/file").c_str());
    rmdir((work_ + "/folder").c_str());
  }
}

TEST_F(RightsOfRoot, DoNotYetApplyToTheChmod) {
  const std::string bin = folder_.makeFolder("bin") + "/";
  folder_.write("bin/render", "#!/bin/sh\necho ran as $(id -u)\n", 0600);
  // Through the shell, root creates a file in the run folder; the mask is still the starter's.
  job_.arguments = "render;>marker -x";
  write(job_);
  Strings arguments = newTask();
  arguments.insert(arguments.end(), {"-a", bin});
  run(arguments);
  struct stat status {};
  ASSERT_EQ(stat((work_ + "/marker").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);

  // The other user may run root's program, but could not have made it executable.
  folder_.write("bin/render", "#!/bin/sh\necho ran as $(id -u)\n", 0600);
  job_.arguments = "render -x";
  write(job_);
  expectResult(run(arguments),
               calling(bin + "render -x", work_) + processStarted + "ran as 65534\n", "", "exit 0");
  EXPECT_EQ(modeOf(bin + "render"), 0755);
}

// Later tasks have the rights of the first: here they can no longer enter the folder.
TEST_F(RightsOfRoot, KeepLaterTasksOutOfFoldersOfTheStarter) {
  const std::string closed = folder_.makeFolder("closed", 0700);
  job_.set("WorkingFolder", closed);
  job_.arguments = "/bin/echo ran";
  job_.tasks.assign(2, "t");
  write(job_);
  expectResult(run(newTask(1, 2)), calling("/bin/echo ran", closed) + processStarted + "ran\n",
               cannotEnter(closed, "Permission denied"), "exit 255");
}

TEST_F(RightsOfRoot, RunAJobOfRootAsRoot) {
  job_.set("uid", "abc").set("gid", "0");
  job_.arguments = command();
  write(job_);
  expectResult(run(newTask()), calling(command(), work_) + processStarted, "", "exit 0");
  EXPECT_EQ(workReport()["Uid:"], Strings{fourTimes(0)});
}

}  // namespace
}  // namespace runlet_test
