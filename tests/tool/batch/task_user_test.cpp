// The user that tasks run as: tests of single functions.

#include "tool/batch/task_user.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "adapter_test.h"
#include "temp_folder.h"
#include "tool/system/files.h"

namespace runlet_tool {
namespace {

using runlet_test::otherId;
using runlet_test::TempFolder;

constexpr auto other = static_cast<std::int32_t>(otherId);

runlet::AdapterContext contextOf(std::int32_t uid, std::int32_t gid) {
  runlet::AdapterContext context;
  context.uid = uid;
  context.gid = gid;
  return context;
}

// The ids of the job and the result: the note, and the ids of the tasks.
struct Row {
  std::int32_t uid;
  std::int32_t gid;
  std::string note;
  std::int32_t uidThen;
  std::int32_t gidThen;
};

// The number of rows with a different result.
template <std::size_t Count>
int countDifferences(const Row (&rows)[Count]) {
  int differences = 0;
  for (const Row& row : rows) {
    runlet::AdapterContext context = contextOf(row.uid, row.gid);
    const std::string note = settleTaskUser(&context);
    if (note == row.note && context.uid == row.uidThen && context.gid == row.gidThen) continue;
    std::fprintf(stderr, "%d %d: %s, %d %d\n", row.uid, row.gid, note.c_str(), context.uid,
                 context.gid);
    ++differences;
  }
  return differences;
}

// Continues the test in a process of that user and group.
void becomeOther() {
  if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(otherId) != 0) _exit(97);
}

TEST(SettledIdentity, OfRootIsTheJobs) {
  REQUIRE_ROOT();
  const Row rows[] = {{71, 72, "", 71, 72},
                      {0, 0, "", 0, 0},
                      {-1, 72, "", -1, 72},
                      {71, -1, "", 71, -1},
                      {-1, -1, "", -1, -1}};
  EXPECT_EQ(countDifferences(rows), 0);
}

TEST(SettledIdentity, OfAnyoneElseIsTheCallers) {
  REQUIRE_ROOT();
  const std::string own = "user 65534 and group 65534 instead of the job's ";
  const std::string reason = ": only root can switch";
  const Row rows[] = {
      {other, other, "", other, other},
      {-1, other, "", other, other},
      {71, 72, own + "user 71 and group 72" + reason, other, other},
      {other, 72, own + "user 65534 and group 72" + reason, other, other},
      {71, other, own + "user 71 and group 65534" + reason, other, other},
      {-1, 72, own + "group 72" + reason, other, other},
      {0, 0, own + "user 0 and group 0" + reason, other, other},
      {-2, -3, own + "user -2 and group -3" + reason, other, other},
  };
  const auto settle = [&] {
    becomeOther();
    _exit(countDifferences(rows));
  };
  EXPECT_EXIT(settle(), testing::ExitedWithCode(0), "^$");
}

// Without a group no job runs, whoever starts it: nothing replaces it.
TEST(SettledIdentity, LeavesAMissingGroupToBeRefused) {
  REQUIRE_ROOT();
  const Row rows[] = {{71, -1, "", 71, -1}, {other, -1, "", other, -1}, {-1, -1, "", -1, -1}};
  const auto settle = [&] {
    becomeOther();
    _exit(countDifferences(rows));
  };
  EXPECT_EXIT(settle(), testing::ExitedWithCode(0), "^$");
}

// The mask has no effect on files.
mode_t ownMask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

int openNull() {
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST(AsTaskUser, IsTheCallerUnlessThatIsRoot) {
  const auto take = [] {
    if (geteuid() == 0) becomeOther();
    umask(012);
    const uid_t own = geteuid();
    const int descriptor = doAsTaskUser(contextOf(71, 72), [&] {
      if (geteuid() != own || ownMask() != 0) _exit(2);
      return openNull();
    });
    _exit(descriptor >= 0 && ownMask() == 012 ? 0 : 1);
  };
  EXPECT_EXIT(take(), testing::ExitedWithCode(0), "^$");
}

TEST(AsTaskUser, IsAProcessOfItsOwnForRoot) {
  REQUIRE_ROOT();
  const mode_t mask = ownMask();
  bool ranInThisProcess = false;
  const int open = fcntl(STDERR_FILENO, F_DUPFD, STDERR_FILENO + 2);
  constexpr uid_t unknown = 4200071;  // has no supplementary groups
  const int descriptor = doAsTaskUser(contextOf(unknown, 72), [&] {
    ranInThisProcess = true;
    uid_t user[3];
    gid_t group[3];
    getresuid(&user[0], &user[1], &user[2]);
    getresgid(&group[0], &group[1], &group[2]);
    for (int i = 0; i < 3; ++i) {
      if (user[i] != unknown || group[i] != 72) _exit(2);
    }
    if (getgroups(0, nullptr) != 0 || ownMask() != 0) _exit(3);
    if (getsid(0) != getpid() || currentFolder() != "/") _exit(4);
    if (fcntl(STDERR_FILENO + 2, F_GETFD) != -1) _exit(5);
    if (prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) != 0) _exit(6);
    return openNull();
  });
  close(open);
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  close(descriptor);
  EXPECT_FALSE(ranInThisProcess);
  EXPECT_EQ(geteuid(), 0U);
  EXPECT_EQ(ownMask(), mask);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

// If root is configured to keep its capabilities when switching users.
TEST(AsTaskUser, HasNoneOfRootsCapabilities) {
  REQUIRE_ROOT();
  const TempFolder folder;
  const auto look = [&] {
    prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP, 0, 0, 0);
    const std::string path = folder.file("made");
    const int result = doAsTaskUser(contextOf(71, 72), [&] { return creat(path.c_str(), 0600); });
    _exit(result == -1 && errno == EACCES ? 0 : 1);
  };
  EXPECT_EXIT(look(), testing::ExitedWithCode(0), "^$");
}

TEST(AsTaskUser, KeepsTheErrorOfTheAction) {
  REQUIRE_ROOT();
  EXPECT_EQ(doAsTaskUser(contextOf(71, 72),
                         [] {
                           errno = ENOSPC;
                           return -1;
                         }),
            -1);
  EXPECT_EQ(errno, ENOSPC);
}

TEST(AsTaskUser, HasAnErrorOfItsOwnIfTheProcessIsKilled) {
  REQUIRE_ROOT();
  EXPECT_EQ(doAsTaskUser(contextOf(71, 72), [] { return raise(SIGKILL); }), -1);
  EXPECT_EQ(errno, EIO);
}

// The user may stop it: the waiting process can be asked to end.
TEST(AsTaskUser, IsNotWaitedForWhenTheCallerIsAskedToEnd) {
  REQUIRE_ROOT();
  const auto wait = [] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    raise(SIGTERM);
    const int result = doAsTaskUser(contextOf(71, 72), [] { return raise(SIGSTOP); });
    const bool isOver = errno == ETIMEDOUT && waitpid(-1, nullptr, WNOHANG) == -1;
    _exit(result == -1 && isOver ? 0 : 1);
  };
  EXPECT_EXIT(wait(), testing::ExitedWithCode(0), "^$");
}

// Nothing is done if switching to the user fails.
TEST(AsTaskUser, IsRefusedByTheSystemWithItsReason) {
  REQUIRE_ROOT();
  const TempFolder folder;
  const std::string made = folder.file("made");
  EXPECT_EQ(doAsTaskUser(contextOf(-1, 72), [&] { return creat(made.c_str(), 0600); }), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(runlet_test::modeOf(made), -1);
}

TEST(AsTaskUser, NeedsADescriptorForTheResult) {
  REQUIRE_ROOT();
  const auto ask = [] {
    doAsTaskUser(contextOf(71, 72), openNull);  // a sanitizer needs memory for its first check
    const rlimit few{3, 3};
    setrlimit(RLIMIT_NOFILE, &few);
    const int result = doAsTaskUser(contextOf(71, 72), openNull);
    _exit(result == -1 && errno == EMFILE ? 0 : 1);
  };
  EXPECT_EXIT(ask(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
}  // namespace runlet_tool
