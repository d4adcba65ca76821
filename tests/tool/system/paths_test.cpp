// Paths relative to a folder.

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>

#include "temp_folder.h"
#include "tool/system/files.h"

namespace runlet_tool {
namespace {

TEST(Paths, AreResolvedFromAFolder) {
  struct Row {
    std::string folder, path, full;
  };
  const Row rows[] = {
      {"/shots", "a.xml", "/shots/a.xml"},
      {"/shots", "x/../a.xml", "/shots/x/../a.xml"},
      {"/shots", "/other/a", "/other/a"},
      {"/shots", "", ""},
      {"/", "a.xml", "/a.xml"},
      {"/shots/", "a.xml", "/shots/a.xml"},
      {"", "a.xml", "a.xml"},
      {"", "/a", "/a"},
      {"/shots", "a\nb %n \"", "/shots/a\nb %n \""},
  };
  for (const Row& row : rows) EXPECT_EQ(fullPath(row.folder, row.path), row.full) << row.path;
}

TEST(Paths, KnowTheCurrentFolderAndThisProgram) {
  char buffer[PATH_MAX] = "";
  ASSERT_NE(getcwd(buffer, sizeof buffer), nullptr);
  EXPECT_EQ(currentFolder(), buffer);
  EXPECT_TRUE(ownPath().ends_with("/runlet_tool_tests")) << ownPath();
}

// In a separate process, which changes its current folder.
TEST(Paths, HaveNoCurrentFolderWhenItIsGone) {
  EXPECT_EXIT(
      {
        {
          const runlet_test::TempFolder folder;
          if (chdir(folder.path().c_str()) != 0) _exit(1);
        }
        _exit(currentFolder().empty() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace runlet_tool
