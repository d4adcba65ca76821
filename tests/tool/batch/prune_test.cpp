// Removing a batch of another user, who may prevent that the logs are removed.

#include "tool/batch/prune.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <functional>

#include "adapter_test.h"
#include "temp_folder.h"

namespace runlet_tool {
namespace {

using runlet_test::modeOf;
using runlet_test::otherId;
using runlet_test::TempFolder;

class PrunedBatch : public testing::Test {
 protected:
  // Two logs of each of two sessions, in a folder of their tasks' user.
  void make(std::int32_t uid, unsigned owner = otherId) {
    for (std::size_t session = 0; session < 2; ++session) {
      record_.sessions.emplace_back().uid = uid;
      record_.sessions.back().gid = static_cast<std::int32_t>(owner);
    }
    folder_.makeFolder("logs");
    for (std::size_t i = 0; i < 4; ++i) {
      Attempt& attempt = record_.attempts.emplace_back();
      attempt.session = i / 2;
      attempt.log = folder_.write("logs/" + std::to_string(i), "", 0600);
      ASSERT_EQ(chown(attempt.log.c_str(), owner, owner), 0);
    }
    ASSERT_EQ(chown(logs().c_str(), owner, owner), 0);
    folder_.write("record", "");
  }

  std::string logs() const {
    return folder_.file("logs");
  }

  std::string log(int number) const {
    return folder_.file("logs/" + std::to_string(number));
  }

  void replaceByFolder(int number) const {
    ASSERT_EQ(unlink(log(number).c_str()), 0);
    ASSERT_EQ(mkdir(log(number).c_str(), 0700), 0);
  }

  // The result, and the text about what remains.
  std::string remove() {
    std::string remaining;
    const std::string failure = removeBatch(record_, folder_.file("record"), &remaining);
    return failure + "|" + remaining;
  }

  bool hasRecord() const {
    return modeOf(folder_.file("record")) != -1;
  }

  TempFolder folder_;
  Record record_;
};

std::string stay(const char* count, int error) {
  return std::string("|") + count + " could not be removed: " + std::strerror(error);
}

TEST_F(PrunedBatch, IsRemovedEvenIfLogsOfAnotherUserCannotBe) {
  REQUIRE_ROOT();
  const struct {
    const char* what;
    std::function<void()> prevent;
    std::string result;
    bool hasFirst;
  } rows[] = {
      {"nothing", [] {}, "|", false},
      {"a folder", [&] { replaceByFolder(1); }, stay("1 log", EISDIR), false},
      {"two folders", [&] { replaceByFolder(1), replaceByFolder(3); }, stay("2 logs", EISDIR),
       false},
      {"no right", [&] { chmod(logs().c_str(), 0555); }, stay("4 logs", EACCES), true},
      {"a link",
       [&] {
         ASSERT_EQ(rename(logs().c_str(), folder_.file("real").c_str()), 0);
         ASSERT_EQ(chown(folder_.file("real").c_str(), 0, 0), 0);
         std::filesystem::create_directory_symlink("real", logs());
       },
       "|4 logs could not be removed: their folder is a link", true},
      {"a folder of root", [&] { ASSERT_EQ(chown(logs().c_str(), 0, 0), 0); },
       "|4 logs could not be removed: their folder belongs to user 0", true},
      {"a folder for all", [&] { ASSERT_EQ(chmod(logs().c_str(), 0777), 0); },
       "|4 logs could not be removed: others may write to their folder", true},
      {"no folder", [&] { std::filesystem::remove_all(logs()); }, "|", false},
      {"a file",
       [&] {
         std::filesystem::remove_all(logs());
         folder_.write("logs", "");
       },
       "|", false},
      {"no way",
       [&] {
         folder_.makeFolder("real", 0700);
         std::filesystem::remove_all(logs());
         std::filesystem::create_directory_symlink("real", logs());
         for (Attempt& attempt : record_.attempts) attempt.log = logs() + "/logs/1";
       },
       stay("4 logs", EACCES), false},
      {"no such user", [&] { record_.sessions[0].uid = -1; }, stay("2 logs", EINVAL), true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    std::filesystem::remove_all(folder_.file("real"));
    std::filesystem::remove_all(logs());
    record_ = {};
    make(static_cast<std::int32_t>(otherId));
    row.prevent();
    EXPECT_EQ(remove(), row.result);
    EXPECT_FALSE(hasRecord());
    EXPECT_EQ(modeOf(log(0)) != -1, row.hasFirst);
  }
}

TEST_F(PrunedBatch, StaysIfOwnLogsCannotBeRemoved) {
  REQUIRE_ROOT();
  make(0);
  ASSERT_EQ(chown(logs().c_str(), 0, 0), 0);
  replaceByFolder(1);
  EXPECT_EQ(remove(), std::string("cannot remove its logs: ") + std::strerror(EISDIR) + "|");
  EXPECT_TRUE(hasRecord());
  EXPECT_NE(modeOf(log(2)), -1);
}

// Own logs, too, are only removed from the folder that they are in: somebody else may have put a
// link in its place.
TEST_F(PrunedBatch, RemovesNothingThroughALink) {
  make(static_cast<std::int32_t>(geteuid()), geteuid());
  ASSERT_EQ(rename(logs().c_str(), folder_.file("real").c_str()), 0);
  std::filesystem::create_directory_symlink("real", logs());
  EXPECT_EQ(remove(), "|4 logs could not be removed: their folder is a link");
  EXPECT_FALSE(hasRecord());
  EXPECT_NE(modeOf(log(0)), -1);
}

// It is not known whether there are logs.
TEST_F(PrunedBatch, StaysIfTheFolderOfOwnLogsCannotBeLookedAt) {
  make(static_cast<std::int32_t>(geteuid()), geteuid());
  const std::string folder = logs() + "/" + std::string(NAME_MAX + 1, 'x');
  for (Attempt& attempt : record_.attempts) attempt.log = folder + "/1";
  EXPECT_EQ(remove(), std::string("cannot remove its logs: ") + std::strerror(ENAMETOOLONG) + "|");
  EXPECT_TRUE(hasRecord());
}

}  // namespace
}  // namespace runlet_tool
