// Who the tasks run as, function by function.

#include "tool/batch/task_user.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "adapter_test.h"

namespace runlet_tool {
namespace {

using runlet_test::otherId;

constexpr auto other = static_cast<std::int32_t>(otherId);

runlet::AdapterContext contextOf(std::int32_t uid, std::int32_t gid) {
  runlet::AdapterContext context;
  context.uid = uid;
  context.gid = gid;
  return context;
}

// What the job says and what comes of it: the note, and the ids that the tasks then have.
struct Row {
  std::int32_t uid;
  std::int32_t gid;
  std::string note;
  std::int32_t uidThen;
  std::int32_t gidThen;
};

// How many of the rows come out otherwise.
template <std::size_t Count>
int wrongRows(const Row (&rows)[Count]) {
  int wrong = 0;
  for (const Row& row : rows) {
    runlet::AdapterContext context = contextOf(row.uid, row.gid);
    const std::string note = settleTaskUser(&context);
    if (note == row.note && context.uid == row.uidThen && context.gid == row.gidThen) continue;
    std::fprintf(stderr, "%d %d: %s, %d %d\n", row.uid, row.gid, note.c_str(), context.uid,
                 context.gid);
    ++wrong;
  }
  return wrong;
}

// A process of that user and group, in which the test then goes on.
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
  EXPECT_EQ(wrongRows(rows), 0);
}

TEST(SettledIdentity, OfAnyoneElseIsTheCallers) {
  REQUIRE_ROOT();
  const std::string own = "user 65534 and group 65534, not as the job's ";
  const std::string reason = ": only root may switch";
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
    _exit(wrongRows(rows));
  };
  EXPECT_EXIT(settle(), testing::ExitedWithCode(0), "^$");
}

// Without a group no job runs, whoever starts it: nothing is put in its place.
TEST(SettledIdentity, LeavesAMissingGroupToBeRefused) {
  REQUIRE_ROOT();
  const Row rows[] = {{71, -1, "", 71, -1}, {other, -1, "", other, -1}, {-1, -1, "", -1, -1}};
  const auto settle = [&] {
    becomeOther();
    _exit(wrongRows(rows));
  };
  EXPECT_EXIT(settle(), testing::ExitedWithCode(0), "^$");
}

TEST(AsTaskUser, IsTheCallerWhoIsNotRoot) {
  REQUIRE_ROOT();
  const auto take = [] {
    becomeOther();
    const AsTaskUser user(contextOf(71, 72));
    _exit(user.isTaken() && geteuid() == otherId && getegid() == otherId ? 0 : 1);
  };
  EXPECT_EXIT(take(), testing::ExitedWithCode(0), "^$");
}

TEST(AsTaskUser, KeepsTheErrorOfWhatWasDone) {
  REQUIRE_ROOT();
  {
    const AsTaskUser user(contextOf(71, 72));
    ASSERT_TRUE(user.isTaken());
    EXPECT_EQ(geteuid(), 71U);
    EXPECT_EQ(getegid(), 72U);
    errno = ENOSPC;
  }
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(geteuid(), 0U);
}

// Whoever cannot go back to the rights that it had must not go on at all.
TEST(AsTaskUser, EndsTheProcessThatCannotGoBack) {
  REQUIRE_ROOT();
  const auto lose = [] {
    const AsTaskUser user(contextOf(71, 72));
    if (setresuid(71, 71, 71) != 0) _exit(97);
  };
  EXPECT_EXIT(lose(), testing::KilledBySignal(SIGABRT), "^$");
}

}  // namespace
}  // namespace runlet_tool
