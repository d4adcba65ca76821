// A user database that cannot be read, and identities that the system does not know.

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "fault_test.h"
#include "mounts.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

void orExit(bool succeeded) {
  if (!succeeded) _exit(95);
}

void makeFile(const std::string& path, const std::string& text, mode_t mode) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  orExit(file != -1 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  orExit(fchmod(file, mode) == 0 && close(file) == 0);
}

class BrokenUserDatabase : public FaultTest {
 protected:
  void SetUp() override {
    FaultTest::SetUp();
    REQUIRE_ROOT();
    REQUIRE_MOUNTS();
    job_.arguments = "/bin/mkdir made";
    job_.remove("uid");
    write(job_);
  }

  // Runs the first task for the user "artist", in a system whose /etc contains only what `furnish`
  // creates.
  ProcessResult runWith(const std::function<void()>& furnish) const {
    Strings arguments = newTask();
    arguments.insert(arguments.end(), {"-u", "artist"});
    ProcessOptions options = adapter(arguments);
    options.prepare = [furnish] {
      orExit(enterOwnMounts() && mount("none", "/etc", "tmpfs", 0, "mode=755") == 0);
      makeFile("/etc/nsswitch.conf", "passwd: files\n", 0644);
      furnish();
    };
    return runProcess(options);
  }

  void expectLookupFails(const std::function<void()>& furnish, const std::string& reason) const {
    SCOPED_TRACE(reason);
    expectResult(runWith(furnish), calling("/bin/mkdir made", folder()),
                 "Cannot obtain info for user artist:" + reason, "exit 255");
    EXPECT_EQ(files(), Strings{"job.xml"});
  }

  Job job_;
};

constexpr char artist[] = "artist:x:0:0::/:/bin/sh\n";

TEST_F(BrokenUserDatabase, IsReportedWithItsReason) {
  expectLookupFails([] {}, "No such file or directory");
  expectLookupFails([] { orExit(mkdir("/etc/passwd", 0755) == 0); }, "Is a directory");
  expectLookupFails([] { orExit(symlink("passwd", "/etc/passwd") == 0); },
                    "Too many levels of symbolic links");
  // Root reads everything, unless it lacks the capability to override permissions.
  expectLookupFails(
      [] {
        makeFile("/etc/passwd", artist, 0000);
        orExit(prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0);
        orExit(prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) == 0);
      },
      "Permission denied");
}

TEST_F(BrokenUserDatabase, MayBeEmptyOrUseless) {
  expectLookupFails([] { makeFile("/etc/passwd", "", 0644); }, "No such user");
  expectLookupFails([] { makeFile("/etc/passwd", "no entry\nartist\nartist:x\n", 0644); },
                    "No such user");
  expectLookupFails([] { makeFile("/etc/passwd", "artist:x:none:0::/:/bin/sh\n", 0644); },
                    "No such user");
}

// The same system with a valid database.
TEST_F(BrokenUserDatabase, StartsTheTaskOnceItIsValid) {
  expectResult(runWith([] { makeFile("/etc/passwd", artist, 0644); }),
               calling("/bin/mkdir made", folder()) + processStarted, "", "exit 0");
  EXPECT_EQ(files(), (Strings{"job.xml", "made"}));
}

// Without the file a lookup would fail, but with an id there is no lookup.
TEST_F(BrokenUserDatabase, DoesNotAffectAJobWithAnId) {
  write(job_.set("uid", "0"));
  expectResult(runWith([] {}), calling("/bin/mkdir made", folder()) + processStarted, "", "exit 0");
}

using RefusedIds = FaultTest;

void overwrite(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY);
  orExit(file != -1 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  orExit(close(file) == 0);
}

// A user namespace in which root is the only user and group.
void enterRootOnlyNamespace() {
  orExit(unshare(CLONE_NEWUSER) == 0);
  overwrite("/proc/self/setgroups", "deny");
  overwrite("/proc/self/uid_map", "0 0 1");
  overwrite("/proc/self/gid_map", "0 0 1");
}

// Whether user namespaces are available: not in a chroot, and not in every container. If not, a
// simulated fault replaces them.
bool mayEnterNamespace() {
  const pid_t child = fork();
  if (child == 0) _exit(unshare(CLONE_NEWUSER) == 0 ? 0 : 1);
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

TEST_F(RefusedIds, AreReportedWithTheSystemsReason) {
  REQUIRE_ROOT();
  const struct {
    const char* uid;
    const char* gid;
    const char* error;
  } rows[] = {
      {"7", "8", "Cannot set gid 8: Invalid argument"},
      {"7", "0", "Cannot set uid 7: Invalid argument"},
      {"-2", "0", "Cannot set uid -2: Invalid argument"},
  };
  ProcessOptions options = withFault("only-root", newTask(1, 2));
  if (mayEnterNamespace()) {
    options = adapter(newTask(1, 2));
    options.prepare = enterRootOnlyNamespace;
  }
  Job job;
  job.arguments = "/bin/mkdir made%tn";
  job.tasks.assign(2, "t");
  for (const auto& row : rows) {
    write(job.set("uid", row.uid).set("gid", row.gid));
    expectResult(runProcess(options), calling("/bin/mkdir made1", folder()), row.error, "exit 255");
    EXPECT_EQ(files(), Strings{"job.xml"});
  }
  write(job.set("uid", "0"));
  expectResult(runProcess(options),
               calling("/bin/mkdir made1", folder()) + processStarted +
                   calling("/bin/mkdir made2", folder()) + processStarted,
               "", "exit 0");
}

}  // namespace
}  // namespace runlet_test
