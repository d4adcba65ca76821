// The order of the steps of a launch, visible if two of them would fail or if one affects another;
// and what persists from one launch to the next.

#include <grp.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "adapter_test.h"
#include "mounts.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

constexpr char fillInFailed[] = "Runlet adapter: Process fill-in for arguments failed.\n";

// The ids of an ended process, from the line `name`: real, effective, saved and file system id, or
// all of "Groups".
std::string idsAtTheEnd(const ProcessResult& result, const std::string& name) {
  std::istringstream lines(result.ending);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind(name + ":\t", 0) == 0) return line.substr(name.size() + 2);
  }
  return "no such line";
}

class LaunchOrder : public AdapterTest {
 protected:
  ProcessResult runUnder(const std::string& appPath, const std::string& command, int count = 1) {
    job_.arguments = command;
    job_.tasks.assign(static_cast<std::size_t>(count), "t");
    write(job_);
    Strings arguments = newTask(1, count);
    arguments.insert(arguments.end(), {"-a", appPath});
    return run(arguments);
  }

  Job job_;
  const std::string bin_ = folder_.makeFolder("bin") + "/";
  const std::string script_ = "#!/bin/sh\nexit 0\n";
};

TEST_F(LaunchOrder, EntersTheFolderBeforeItFillsIn) {
  job_.set("WorkingFolder", "/nowhere/at/all");
  expectResult(runUnder(bin_, "render %t"), "",
               cannotEnter("/nowhere/at/all", "No such file or directory"), "exit 255");
}

TEST_F(LaunchOrder, FillsInBeforeItLooksForTheFirstWord) {
  expectResult(runUnder(bin_, "render%t"), "", fillInFailed, "exit 255");
}

TEST_F(LaunchOrder, FillsInBeforeItLooksAtTheRights) {
  job_.remove("gid");
  expectResult(runUnder("", "render %t"), "", fillInFailed, "exit 255");
}

// The line is split into words after the expansion.
TEST_F(LaunchOrder, SplitsWhatWasFilledIn) {
  folder_.write("bin/a", script_, 0600);
  job_.arguments = "%tp1";
  job_.tasks = {"a b", "ab"};
  write(job_);
  Strings arguments = newTask(1, 2);
  arguments.insert(arguments.end(), {"-a", bin_});
  // The first task has run; the second has no space, and ends the process.
  expectResult(run(arguments), calling(bin_ + "a b", folder()) + processStarted,
               terminateText("std::out_of_range",
                             "basic_string::substr: __pos (which is 18446744073709551615) > "
                             "this->size() (which is 2)"),
               "signal 6");
  EXPECT_EQ(modeOf(bin_ + "a"), 0755);
}

TEST_F(LaunchOrder, HasRunTheTasksBeforeOneThatCannotBeFilledIn) {
  job_.arguments = "/bin/mkdir made%tn %tp1%tp1%tp1";
  job_.tasks = {"x", std::string(1999, 'y'), "z"};
  write(job_);
  expectResult(run(newTask(1, 3)), calling("/bin/mkdir made1 xxx", folder()) + processStarted,
               fillInFailed, "exit 255");
  EXPECT_EQ(modeOf(folder_.file("made1")) & 0700, 0700);
  EXPECT_EQ(modeOf(folder_.file("made2")), -1);
  EXPECT_EQ(modeOf(folder_.file("made3")), -1);
}

TEST_F(LaunchOrder, MakesExecutableBeforeItLooksAtTheRights) {
  folder_.write("bin/render", script_, 0600);
  job_.remove("gid");
  expectResult(runUnder(bin_, "render x", 3), calling(bin_ + "render x", folder()),
               "Cannot set gid -1: No such group", "exit 255");
  EXPECT_EQ(modeOf(bin_ + "render"), 0755);
}

TEST_F(LaunchOrder, LooksAtTheGroupBeforeTheUser) {
  job_.remove("uid").set("gid", "-2");
  job_.arguments = "/bin/true";
  write(job_);
  Strings arguments = newTask();
  const std::string refused = "Cannot set gid -2: Operation not permitted";
  expectResult(runProcess(unprivileged(arguments)), calling("/bin/true", folder()), refused,
               "exit 255");
  arguments.insert(arguments.end(), {"-u", "no such user at all"});
  expectResult(runProcess(unprivileged(arguments)), calling("/bin/true", folder()), refused,
               "exit 255");
}

// A number beyond 64 bits sets errno, long before the group is used.
TEST_F(LaunchOrder, DoesNotReportAnOlderErrorAsTheReason) {
  job_.set("TaskTimeout", "99999999999999999999").remove("gid");
  job_.arguments = "/bin/true";
  write(job_);
  expectResult(run(newTask()), calling("/bin/true", folder()), "Cannot set gid -1: No such group",
               "exit 255");
}

// A relative application path is relative to the run folder, not to the initial folder.
TEST_F(LaunchOrder, FindsARelativeProgramInTheRunFolder) {
  const std::string start = folder_.makeFolder("start");
  folder_.makeFolder("start/bin");
  folder_.write("start/bin/render", script_, 0600);
  folder_.write("bin/render", script_, 0600);
  job_.arguments = "render x";
  write(job_);
  Strings arguments = newTask();
  arguments.insert(arguments.end(), {"-a", "bin/tool"});
  ProcessOptions options = adapter(arguments);
  options.folder = start;
  expectResult(runProcess(options), calling("bin/render x", folder()) + processStarted, "",
               "exit 0");
  EXPECT_EQ(modeOf(folder_.file("bin/render")), 0755);
  EXPECT_EQ(modeOf(folder_.file("start/bin/render")), 0600);
}

// Neither the shell for chmod nor the splitting into words supports quotes around the folder.
TEST_F(LaunchOrder, SplitsAFolderWithASpace) {
  folder_.write("a", script_, 0600);
  folder_.makeFolder("b");
  folder_.write("b/render", script_, 0600);
  const std::string line = folder_.file("a b/render x");
  expectResult(runUnder(folder_.file("a b/tool"), "render x"),
               calling(line, folder()) + processStarted, "", "exit 0");
  EXPECT_EQ(modeOf(folder_.file("a")), 0755);
  EXPECT_EQ(modeOf(folder_.file("b/render")), 0755);
}

TEST_F(LaunchOrder, LooksForTheFolderOfARelativeJobFileAgain) {
  folder_.makeFolder("jobs");
  job_.arguments = "/bin/pwd";
  job_.tasks.assign(2, "t");
  folder_.write("jobs/job.xml", job_.text());
  ProcessOptions options = adapter({"-o", "NewTask", "-j", "jobs/job.xml", "-s", "1", "-n", "2"});
  options.folder = folder();
  expectResult(runProcess(options),
               calling("/bin/pwd", "jobs") + processStarted + folder_.file("jobs") + "\n",
               cannotEnter("jobs", "No such file or directory"), "exit 255");
}

TEST_F(LaunchOrder, ReadsTheJobFileOnce) {
  job_.arguments = "/bin/cp other.xml job.xml";
  job_.tasks.assign(3, "t");
  write(job_);
  folder_.write("other.xml", "no job at all");
  const std::string lines = calling(job_.arguments, folder()) + processStarted;
  expectResult(run(newTask(1, 3)), lines + lines + lines, "", "exit 0");
}

// The rest requires root.

class LaunchOrderOfRoot : public LaunchOrder {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    job_.set("uid", std::to_string(otherId)).set("gid", std::to_string(otherId));
    job_.set("WorkingFolder", work_);
    job_.arguments = "/bin/true x";
  }

  static void dropFromNextProgram(int capability) {
    if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) _exit(95);
  }

  const std::string work_ = folder_.makeFolder("work", 0777);
};

// The adapter itself switches, and never switches back.
TEST_F(LaunchOrderOfRoot, EndsAsTheUserAndGroupOfTheJob) {
  write(job_);
  const ProcessResult result = run(newTask());
  expectResult(result, calling("/bin/true x", work_) + processStarted, "", "exit 0");
  EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(otherId));
  EXPECT_EQ(idsAtTheEnd(result, "Gid"), fourTimes(otherId));
}

TEST_F(LaunchOrderOfRoot, EndsWithTheGroupIfTheUserIsRefused) {
  write(job_);
  ProcessOptions options = adapter(newTask());
  options.prepare = [] { dropFromNextProgram(CAP_SETUID); };
  const ProcessResult result = runProcess(options);
  expectResult(result, calling("/bin/true x", work_),
               "Cannot set uid 65534: Operation not permitted", "exit 255");
  EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(0));
  EXPECT_EQ(idsAtTheEnd(result, "Gid"), fourTimes(otherId));
}

TEST_F(LaunchOrderOfRoot, EndsWithTheGroupIfTheUserIsMissing) {
  job_.remove("uid");
  write(job_);
  const ProcessResult result = run(newTask());
  expectResult(result, calling("/bin/true x", work_), "Missing user name", "exit 255");
  EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(0));
  EXPECT_EQ(idsAtTheEnd(result, "Gid"), fourTimes(otherId));
}

TEST_F(LaunchOrderOfRoot, EndsUnchangedIfTheGroupIsRefused) {
  write(job_);
  ProcessOptions options = adapter(newTask());
  options.prepare = [] { dropFromNextProgram(CAP_SETGID); };
  const ProcessResult result = runProcess(options);
  expectResult(result, calling("/bin/true x", work_),
               "Cannot set gid 65534: Operation not permitted", "exit 255");
  EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(0));
  EXPECT_EQ(idsAtTheEnd(result, "Gid"), fourTimes(0));
}

// The chmod of the first task has the initial rights and mask; those of later tasks have what the
// first task left.
TEST_F(LaunchOrderOfRoot, GivesChmodWhatThePreviousTaskLeft) {
  job_.set("umask", "63").set("gid", "100");
  folder_.write("bin/render;>1", script_, 0755);
  folder_.write("bin/render;>2", script_, 0755);
  folder_.write("bin/render", script_, 0600);
  const std::string start = bin_ + "render;>";
  const auto becomeOther = [] {
    if (setuid(otherId) != 0) _exit(97);
  };
  expectResult(runUnder(bin_, "render;>%tn x", 2),
               calling(start + "1 x", work_) + processStarted + calling(start + "2 x", work_) +
                   processStarted,
               chmodError(bin_ + "render", becomeOther), "exit 0");
  struct stat first {};
  struct stat second {};
  ASSERT_EQ(stat((work_ + "/1").c_str(), &first), 0);
  ASSERT_EQ(stat((work_ + "/2").c_str(), &second), 0);
  EXPECT_EQ(first.st_uid, 0U);
  EXPECT_EQ(first.st_gid, 0U);
  EXPECT_EQ(first.st_mode & 07777U, 0644U);
  EXPECT_EQ(second.st_uid, otherId);
  EXPECT_EQ(second.st_gid, 100U);
  EXPECT_EQ(second.st_mode & 07777U, 0600U);
}

// The limit applies to the user of the job, not to root: chmod has still run.
TEST_F(LaunchOrderOfRoot, SwitchesBeforeItForks) {
  folder_.write("bin/render", script_, 0600);
  job_.arguments = "render x";
  write(job_);
  Strings arguments = newTask();
  arguments.insert(arguments.end(), {"-a", bin_});
  ProcessOptions options = adapter(arguments);
  options.environment.emplace_back("ASAN_OPTIONS", "detect_leaks=0:verify_asan_link_order=0");
  options.prepare = [] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NPROC, &none);
  };
  expectResult(runProcess(options), calling(bin_ + "render x", work_),
               "Runlet adapter: Cannot start a new child process\n"
               "Wait Error:No child processes\n"
               "Cannot start " +
                   bin_ +
                   "render x\n"
                   "Make sure the batch file or executable name has its full name and path (or "
                   "configure server accordingly)\n",
               "exit 255");
  EXPECT_EQ(modeOf(bin_ + "render"), 0755);
}

// The system's real user database, with its file replaced.
class UserDatabase : public LaunchOrderOfRoot {
 protected:
  void SetUp() override {
    LaunchOrderOfRoot::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    REQUIRE_MOUNTS();
  }

  // Runs the first task for the user `name`, with `users` as the system's users. The starter is in
  // three groups besides its own.
  ProcessResult runAs(const std::string& name, const std::string& users) {
    const std::string file = folder_.write("passwd", users);
    job_.remove("uid").set("gid", "100");
    write(job_);
    Strings arguments = newTask();
    arguments.insert(arguments.end(), {"-u", name});
    ProcessOptions options = adapter(arguments);
    options.prepare = [file] {
      const gid_t groups[] = {4, 24, 12345};
      if (setgroups(3, groups) != 0 || !enterOwnMounts() ||
          mount(file.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) != 0) {
        _exit(95);
      }
    };
    return runProcess(options);
  }
};

TEST_F(UserDatabase, GivesTheUserIdAndNothingElse) {
  const ProcessResult result =
      runAs("artist", "root:x:0:0::/:/bin/sh\nartist:x:12345:54321:Artist:/home/artist:/bin/sh\n");
  expectResult(result, calling("/bin/true x", work_) + processStarted, "", "exit 0");
  EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(12345));
  EXPECT_EQ(idsAtTheEnd(result, "Gid"), fourTimes(100));
  EXPECT_EQ(idsAtTheEnd(result, "Groups"), "4 24 12345 ");
}

TEST_F(UserDatabase, MayGiveRootItself) {
  const ProcessResult result = runAs("admin", "admin:x:0:0::/:/bin/sh\n");
  expectResult(result, calling("/bin/true x", work_) + processStarted, "", "exit 0");
  EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(0));
}

// The name is looked up byte for byte.
TEST_F(UserDatabase, DoesNotKnowOtherNames) {
  for (const char* name : {"Artist", "artis", "artist ", "12345", "%s"}) {
    const ProcessResult result = runAs(name, "artist:x:12345:100::/:/bin/sh\n");
    const std::string error = std::string("Cannot obtain info for user ").append(name).append(":");
    EXPECT_EQ(result.output, calling("/bin/true x", work_));
    // The reason comes from the system; some databases set one, others do not.
    EXPECT_TRUE(result.error == error + "No such user" ||
                result.error == error + "No such file or directory")
        << result.error;
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 255");
    EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(0));
    EXPECT_EQ(idsAtTheEnd(result, "Gid"), fourTimes(100));
  }
}

TEST_F(UserDatabase, MayHoldAnInvalidId) {
  const ProcessResult result = runAs("nowhere", "nowhere:x:4294967295:100::/:/bin/sh\n");
  expectResult(result, calling("/bin/true x", work_), "Cannot set uid -1: No such user",
               "exit 255");
  EXPECT_EQ(idsAtTheEnd(result, "Uid"), fourTimes(0));
}

}  // namespace
}  // namespace runlet_test
