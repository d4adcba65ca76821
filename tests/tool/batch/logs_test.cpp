// The tasks' logs and their owners.

#include "tool/batch/logs.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>

#include "adapter_test.h"
#include "temp_folder.h"

namespace runlet_tool {
namespace {

using runlet_test::otherId;
using runlet_test::TempFolder;

// A batch of `taskCount` tasks that run as the caller, with logs in `logFolder`.
void fill(std::size_t taskCount, const std::string& logFolder, Batch* batch) {
  batch->context.uid = static_cast<std::int32_t>(geteuid());
  batch->context.gid = static_cast<std::int32_t>(getegid());
  batch->context.taskList.resize(taskCount);
  batch->name = "shot";
  batch->logFolder = logFolder;
}

// The same as another user, which requires root.
void fillForAnother(const std::string& logFolder, Batch* batch) {
  fill(1, logFolder, batch);
  batch->context.uid = otherId;
  batch->context.gid = otherId;
}

TEST(Logs, AreNumberedSoThatTheySort) {
  struct Row {
    std::size_t taskCount;
    std::int32_t task;
    std::string path;
  };
  const Row rows[] = {
      {1, 1, "/l/shot-1.log"},     {9, 9, "/l/shot-9.log"},          {10, 9, "/l/shot-09.log"},
      {200, 7, "/l/shot-007.log"}, {1000, 1000, "/l/shot-1000.log"},
  };
  for (const Row& row : rows) {
    Batch batch;
    fill(row.taskCount, "/l", &batch);
    EXPECT_EQ(logPath(batch, row.task), row.path);
  }
}

TEST(Logs, AreReplaced) {
  const TempFolder folder;
  Batch batch;
  fill(1, folder.path(), &batch);
  folder.write("shot-1.log", "of an earlier run");
  const int log = openLog(batch, 1);
  ASSERT_GE(log, 0);
  EXPECT_EQ(fcntl(log, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(log, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(write(log, "new", 3), 3);
  close(log);
  EXPECT_EQ(runlet_test::readFile(folder.file("shot-1.log")), "new");
}

TEST(Logs, AreRemovedAsTheUserOfTheTasks) {
  REQUIRE_ROOT();
  const TempFolder folder;
  Batch batch;
  fillForAnother(folder.path(), &batch);
  folder.write("shot-1.log", "");
  EXPECT_EQ(removeLog(batch, 1, 1), EACCES);
  EXPECT_EQ(removeLog(batch, 1, 2), ENOENT);
  ASSERT_EQ(chown(folder.path().c_str(), otherId, otherId), 0);
  EXPECT_EQ(removeLog(batch, 1, 1), 0);
  EXPECT_EQ(runlet_test::modeOf(folder.file("shot-1.log")), -1);
}

// The folder of one batch is that batch's alone.
TEST(Logs, OfABatchAreInAFolderThatNobodyElseHasMade) {
  const TempFolder folder;
  Batch batch;
  fill(1, folder.file("a/shot-ID"), &batch);
  batch.logFolderKind = LogFolder::created;
  EXPECT_TRUE(makeLogFolder(batch, "run"));
  const auto refusal = [&batch] {
    testing::internal::CaptureStderr();
    const bool isMade = makeLogFolder(batch, "run");
    const std::string text = testing::internal::GetCapturedStderr();
    const std::string start = "runlet-job: run: cannot write logs to " + batch.logFolder + ": ";
    return isMade ? "" : text.substr(text.starts_with(start) ? start.size() : 0);
  };
  EXPECT_EQ(refusal(), "File exists\n");
  batch.logFolderKind = LogFolder::owned;
  EXPECT_EQ(refusal(), "");
  ASSERT_EQ(chmod(batch.logFolder.c_str(), 0777), 0);
  EXPECT_EQ(refusal(), "others may write to it\n");
  ASSERT_EQ(chmod(batch.logFolder.c_str(), 0775), 0);
  EXPECT_EQ(refusal(), "others may write to it\n");
  ASSERT_EQ(rename(batch.logFolder.c_str(), folder.file("other").c_str()), 0);
  ASSERT_EQ(symlink("../other", batch.logFolder.c_str()), 0);
  ASSERT_EQ(chmod(folder.file("other").c_str(), 0755), 0);
  EXPECT_EQ(refusal(), "it is a link\n");
  if (geteuid() != 0) return;
  ASSERT_EQ(unlink(batch.logFolder.c_str()), 0);
  ASSERT_EQ(mkdir(batch.logFolder.c_str(), 0755), 0);
  ASSERT_EQ(chown(batch.logFolder.c_str(), otherId, otherId), 0);
  EXPECT_EQ(refusal(), "it belongs to user " + std::to_string(otherId) + "\n");
}

// Who can write to the folder above can exchange it while the batch runs.
TEST(Logs, OfABatchAreUsedInTheirOwnFolderOnly) {
  const TempFolder folder;
  Batch batch;
  fill(1, folder.file("logs"), &batch);
  batch.logFolderKind = LogFolder::created;
  ASSERT_TRUE(makeLogFolder(batch, "run"));
  close(openLog(batch, 1));
  EXPECT_FALSE(isDiskFull(batch));
  ASSERT_EQ(chmod(batch.logFolder.c_str(), 0775), 0);
  EXPECT_EQ(openLog(batch, 1), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(removeLog(batch, 1, 1), EPERM);
  ASSERT_EQ(chmod(batch.logFolder.c_str(), 0755), 0);
  ASSERT_EQ(rename(batch.logFolder.c_str(), folder.file("real").c_str()), 0);
  folder.write("real/shot-1.log", "kept");
  for (const char* target : {"real", "real/", "nowhere"}) {
    ASSERT_EQ(symlink(target, batch.logFolder.c_str()), 0);
    EXPECT_EQ(openLog(batch, 1), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(removeLog(batch, 1, 1), EPERM);
    EXPECT_FALSE(isDiskFull(batch));
    removeEmptyLogFolder(batch);
    ASSERT_EQ(unlink(batch.logFolder.c_str()), 0);
  }
  EXPECT_EQ(runlet_test::readFile(folder.file("real/shot-1.log")), "kept");
  EXPECT_EQ(openLog(batch, 1), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(Logs, LeaveNoEmptyFolder) {
  const TempFolder folder;
  Batch batch;
  fill(1, folder.file("logs"), &batch);
  ASSERT_TRUE(makeLogFolder(batch, "run"));
  close(openLog(batch, 1));
  removeEmptyLogFolder(batch);
  EXPECT_GT(runlet_test::modeOf(batch.logFolder), 0);
  EXPECT_EQ(removeLog(batch, 1, 1), 0);
  removeEmptyLogFolder(batch);
  EXPECT_EQ(runlet_test::modeOf(batch.logFolder), -1);
}

// A run blocked on a pipe without a reader could not even be interrupted, and a link may lead to
// the starter's terminal.
TEST(Logs, AreNewFilesWhateverIsThere) {
  const TempFolder folder;
  Batch batch;
  fill(1, folder.path(), &batch);
  const std::string path = logPath(batch, 1);
  const std::string other = folder.write("other", "kept");
  const std::function<int()> things[] = {
      [&] { return mkfifo(path.c_str(), 0666); },
      [&] { return symlink("/dev/tty", path.c_str()); },
      [&] { return symlink(other.c_str(), path.c_str()); },
      [&] { return link(other.c_str(), path.c_str()); },
      [&] { return symlink("/nowhere", path.c_str()); },
      [&] { return chmod(folder.write("shot-1.log", "", 0666).c_str(), 0666); },
  };
  for (const auto& make : things) {
    ASSERT_EQ(make(), 0);
    const int log = openLog(batch, 1);
    ASSERT_GE(log, 0);
    close(log);
    struct stat status {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
    EXPECT_EQ(status.st_nlink, 1U);
    ASSERT_EQ(unlink(path.c_str()), 0);
  }
  EXPECT_EQ(runlet_test::readFile(other), "kept");
  folder.makeFolder("shot-1.log");
  EXPECT_EQ(openLog(batch, 1), -1);
  EXPECT_EQ(errno, EISDIR);
}

TEST(Logs, AreInAFolderThatIsCreatedForThem) {
  const TempFolder folder;
  Batch batch;
  fill(1, folder.file("a/b c/d"), &batch);
  EXPECT_TRUE(makeLogFolder(batch, "run"));
  EXPECT_TRUE(makeLogFolder(batch, "run"));  // it may exist
  EXPECT_GE(runlet_test::modeOf(folder.file("a/b c/d")), 0);
}

// Asserts modes of logs and their folder, whatever the mask of this process, which stays unchanged.
void expectModes(bool isOfAnother) {
  const struct {
    mode_t own;
    std::int32_t ofJob;
    int log;
    int folder;
  } rows[] = {
      {022, 022, 0644, 0755}, {022, 077, 0600, 0700}, {077, 022, 0644, 0755},
      {0, 0, 0644, 0755},     {022, 027, 0640, 0750}, {0, 0777, 0600, 0700},
      {0777, 0, 0644, 0755},  {0, 0400, 0644, 0755},  {022, -1, 0600, 0700},
  };
  const mode_t before = umask(0);
  for (const auto& row : rows) {
    const TempFolder folder;
    Batch batch;
    const std::string logs = folder.makeFolder("open", 0777) + "/a/b";
    isOfAnother ? fillForAnother(logs, &batch) : fill(1, logs, &batch);
    batch.context.umask = row.ofJob;
    umask(row.own);
    ASSERT_TRUE(makeLogFolder(batch, "run"));
    const int log = openLog(batch, 1);
    EXPECT_GE(log, 0);
    close(log);
    EXPECT_EQ(umask(row.own), row.own);
    EXPECT_EQ(runlet_test::modeOf(logPath(batch, 1)), row.log) << row.own << " " << row.ofJob;
    for (const std::string& path : {logs, folder.file("open/a")}) {
      EXPECT_EQ(runlet_test::modeOf(path), row.folder) << row.own << " " << row.ofJob;
    }
  }
  umask(before);
}

TEST(Logs, HaveTheModeThatTheMaskOfTheJobLeaves) {
  expectModes(false);
}

TEST(LogsOfAnother, HaveTheModeThatTheMaskOfTheJobLeaves) {
  REQUIRE_ROOT();
  expectModes(true);
}

void expectNoLogFolder(const Batch& batch, const std::string& reason) {
  testing::internal::CaptureStderr();
  EXPECT_FALSE(makeLogFolder(batch, "submit"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "runlet-job: submit: cannot write logs to " + batch.logFolder + ": " + reason + "\n");
}

TEST(Logs, CannotBeInsideAFile) {
  const TempFolder folder;
  Batch batch;
  fill(1, folder.write("file", "") + "/logs", &batch);
  expectNoLogFolder(batch, "Not a directory");
  EXPECT_EQ(openLog(batch, 1), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(LogsOfAnother, BelongToThatUser) {
  REQUIRE_ROOT();
  const TempFolder folder;
  Batch batch;
  const std::string open = folder.makeFolder("open", 0777);
  fillForAnother(open + "/logs", &batch);
  ASSERT_TRUE(makeLogFolder(batch, "run"));
  const int log = openLog(batch, 1);
  ASSERT_GE(log, 0);
  struct stat status {};
  fstat(log, &status);
  close(log);
  EXPECT_EQ(status.st_uid, otherId);
  EXPECT_EQ(status.st_gid, otherId);
  stat((open + "/logs").c_str(), &status);
  EXPECT_EQ(status.st_uid, otherId);
  EXPECT_EQ(geteuid(), 0U);
  EXPECT_EQ(getegid(), getgid());
}

// In a world-writable folder, with or without the sticky bit.
TEST(LogsOfAnother, AreNotFilesOfOthers) {
  REQUIRE_ROOT();
  const TempFolder folder;
  for (const unsigned mode : {0777U, 01777U}) {
    const std::string logs = folder.makeFolder(std::to_string(mode), mode);
    ASSERT_EQ(chmod(logs.c_str(), mode), 0);
    const std::string path = logs + "/shot-1.log";
    close(creat(path.c_str(), 0666));
    ASSERT_EQ(chown(path.c_str(), 71, 72), 0);
    Batch batch;
    fillForAnother(logs, &batch);
    const int log = openLog(batch, 1);
    const int error = errno;
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    if (mode == 0777) {
      EXPECT_GE(log, 0);
      EXPECT_EQ(status.st_uid, otherId);
      close(log);
    } else {
      EXPECT_EQ(log, -1);
      EXPECT_EQ(error, EPERM);
      EXPECT_EQ(status.st_uid, 71U);
    }
  }
}

// An entry of an access control list: its tag and permissions. In the kernel's format they follow
// the version number 2.
struct AccessEntry {
  std::uint16_t tag;
  std::uint16_t rights;
  std::uint32_t id;
};

// A default list that gives everybody all rights to new files in the folder, whatever the mask; no
// effect if the file system does not support lists.
void allowEverybody(const std::string& folder) {
  const struct {
    std::uint32_t version;
    AccessEntry entries[3];
  } list = {2, {{1, 7, 0xffffffff}, {4, 7, 0xffffffff}, {32, 7, 0xffffffff}}};
  setxattr(folder.c_str(), "system.posix_acl_default", &list, sizeof list, 0);
}

TEST(Logs, AreNotOpenedToOthersByTheAccessListOfTheFolder) {
  const TempFolder folder;
  allowEverybody(folder.path());
  Batch batch;
  fill(1, folder.file("a/b"), &batch);
  batch.context.umask = 027;
  ASSERT_TRUE(makeLogFolder(batch, "run"));
  close(openLog(batch, 1));
  EXPECT_EQ(runlet_test::modeOf(folder.file("a")), 0750);
  EXPECT_EQ(runlet_test::modeOf(folder.file("a/b")), 0750);
  EXPECT_EQ(runlet_test::modeOf(logPath(batch, 1)), 0640);
}

TEST(LogsOfAnother, AreRefusedInAFolderWhereTheUserMayNotWrite) {
  REQUIRE_ROOT();
  const TempFolder folder;
  for (const unsigned mode : {0700U, 0755U, 0776U}) {
    const std::string name = std::to_string(mode);
    folder.makeFolder(name, mode);
    Batch batch;
    fillForAnother(folder.file(name), &batch);
    expectNoLogFolder(batch, "Permission denied");
  }
}

// The reason is why it cannot be created, not that it is then missing.
TEST(LogsOfAnother, AreRefusedInAFolderThatTheUserCannotCreate) {
  REQUIRE_ROOT();
  const TempFolder folder;
  Batch batch;
  fillForAnother(folder.makeFolder("of root", 0755) + "/logs", &batch);
  expectNoLogFolder(batch, "Permission denied");
}

// If root has lost the right to switch users, as in a container.
TEST(LogsOfAnother, AreRefusedWithoutTheRightToBecomeTheUser) {
  REQUIRE_ROOT();
  Batch batch;
  fillForAnother("", &batch);
  batch.context.uid = -1;  // refused by the system
  const TempFolder folder;
  batch.logFolder = folder.file("logs");
  expectNoLogFolder(batch, "Invalid argument");
  EXPECT_EQ(openLog(batch, 1), -1);
  EXPECT_EQ(runlet_test::modeOf(folder.file("logs")), -1);
}

}  // namespace
}  // namespace runlet_tool
