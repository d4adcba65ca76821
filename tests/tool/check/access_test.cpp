// What another user may access, by permission bits.

#include "tool/system/access.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "temp_folder.h"

namespace runlet_tool {
namespace {

using runlet_test::TempFolder;

constexpr uid_t stranger = 4000000;
constexpr gid_t strangers = 4000001;

class AccessOfAnother : public testing::Test {
 protected:
  const TempFolder folder_;
  const Identity other_ = {stranger, strangers, {}};
  const Identity groupMember_ = {stranger, getegid(), {}};
  const Identity lateMember_ = {stranger, strangers, {3, getegid()}};
};

TEST_F(AccessOfAnother, ToAFolderNeedsTheRightToSearchIt) {
  folder_.makeFolder("open", 0711);
  folder_.makeFolder("ofGroup", 0710);
  folder_.makeFolder("closed", 0700);
  folder_.makeFolder("closed/in", 0755);
  folder_.write("file", "");
  EXPECT_EQ(accessToFolder(other_, folder_.path(), "open"), Access::granted);
  EXPECT_EQ(accessToFolder(other_, "/", folder_.file("open")), Access::granted);
  EXPECT_EQ(accessToFolder(other_, folder_.path(), "ofGroup"), Access::denied);
  EXPECT_EQ(accessToFolder(groupMember_, folder_.path(), "ofGroup"), Access::granted);
  EXPECT_EQ(accessToFolder(lateMember_, folder_.path(), "ofGroup"), Access::granted);
  EXPECT_EQ(accessToFolder(other_, folder_.path(), "closed"), Access::denied);
  EXPECT_EQ(accessToFolder(other_, folder_.path(), "closed/in"), Access::denied);
  EXPECT_EQ(accessToFolder(other_, folder_.path(), "file"), Access::missing);
  EXPECT_EQ(accessToFolder(other_, folder_.path(), "none"), Access::missing);
}

TEST_F(AccessOfAnother, ToTheirOwnFileIsThatOfTheOwner) {
  const Identity owner = {geteuid(), strangers, {}};  // not the caller, since the group differs
  folder_.write("file", "", 0655);
  EXPECT_EQ(accessToProgram(other_, folder_.path(), "file"), Access::granted);
  // Root may execute anything with an execute bit.
  EXPECT_EQ(accessToProgram(owner, folder_.path(), "file"),
            geteuid() == 0 ? Access::granted : Access::denied);
}

TEST_F(AccessOfAnother, IsUnlimitedForRoot) {
  const Identity root = {0, strangers, {}};
  folder_.makeFolder("closed", 0000);
  folder_.write("program", "", 0001);
  folder_.write("text", "", 0666);
  EXPECT_EQ(accessToFolder(root, folder_.path(), "closed"), Access::granted);
  EXPECT_EQ(accessToProgram(root, folder_.path(), "program"), Access::granted);
  EXPECT_EQ(accessToProgram(root, folder_.path(), "text"), Access::denied);
}

TEST_F(AccessOfAnother, FollowsLinks) {
  folder_.makeFolder("closed", 0700);
  folder_.write("closed/program", "", 0755);
  ASSERT_EQ(symlink("closed/program", folder_.file("link").c_str()), 0);
  EXPECT_EQ(accessToProgram(other_, folder_.path(), "link"), Access::denied);
}

// Not by the normalised path.
TEST_F(AccessOfAnother, IsDecidedStepByStep) {
  folder_.makeFolder("closed", 0700);
  folder_.makeFolder("open", 0755);
  folder_.write("open/program", "", 0755);
  folder_.write("open/text", "", 0644);
  ASSERT_EQ(symlink("loop", folder_.file("loop").c_str()), 0);
  ASSERT_EQ(symlink((folder_.path() + "/open").c_str(), folder_.file("full").c_str()), 0);
  const std::string closed = folder_.file("closed");
  EXPECT_EQ(accessToFolder(other_, folder_.path(), "closed/.."), Access::denied);
  EXPECT_EQ(accessToProgram(other_, closed, "../open/program"), Access::denied);
  EXPECT_EQ(accessToProgram(other_, closed, folder_.file("open/program")), Access::granted);
  EXPECT_EQ(accessToProgram(other_, folder_.path(), "full/../open/program"), Access::granted);
  EXPECT_EQ(accessToProgram(other_, folder_.path(), "loop"), Access::missing);
  EXPECT_EQ(accessToProgram(other_, folder_.path(), "open/program/"), Access::missing);
  EXPECT_EQ(accessToProgram(other_, folder_.path(), "open/text"), Access::denied);
  EXPECT_EQ(accessToProgram(other_, folder_.path(), "open/text", FileMode::executable),
            Access::granted);
  EXPECT_EQ(accessToProgram(other_, closed, "../open/text", FileMode::executable), Access::denied);
}

TEST_F(AccessOfAnother, OfTheCallerIsDecidedByTheSystem) {
  const Identity self = {geteuid(), getegid(), {}};
  folder_.write("program", "", 0711);
  folder_.write("text", "", 0644);
  EXPECT_EQ(accessToProgram(self, folder_.path(), "program"), Access::granted);
  EXPECT_EQ(accessToProgram(self, folder_.path(), "text"), Access::denied);
}

TEST_F(AccessOfAnother, ToAProgramGoesAlongThePath) {
  folder_.makeFolder("first");
  folder_.makeFolder("second");
  folder_.write("first/bake", "", 0700);
  folder_.write("second/bake", "", 0755);
  folder_.write("first/only", "", 0700);
  folder_.write("here", "", 0755);
  const std::string old = std::getenv("PATH");
  setenv("PATH", (folder_.file("first") + ":/nowhere:" + folder_.file("second") + ":").c_str(), 1);
  struct Row {
    std::string word;
    std::string program;
    Access access;
  };
  const Row rows[] = {
      {"bake", folder_.file("second/bake"), Access::granted},
      {"only", "", Access::denied},
      {"none", "", Access::missing},
      {"here", folder_.path() + "/here", Access::granted},
      {"second/bake", folder_.file("second/bake"), Access::granted},
      {"/nowhere/bake", "", Access::missing},
      {"first/bake", "", Access::denied},
  };
  for (const Row& row : rows) {
    Access access = Access::missing;
    EXPECT_EQ(findProgram(other_, folder_.path(), row.word, &access), row.program) << row.word;
    EXPECT_EQ(access, row.access) << row.word;
  }
  unsetenv("PATH");
  Access access = Access::missing;
  EXPECT_EQ(findProgram(other_, folder_.path(), "sh", &access), "/bin/sh");
  setenv("PATH", old.c_str(), 1);
}

}  // namespace
}  // namespace runlet_tool
