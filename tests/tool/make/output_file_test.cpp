// Files that are written whole or not at all.

#include "tool/make/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>

#include "temp_folder.h"

namespace runlet_tool {
namespace {

using runlet_test::modeOf;
using runlet_test::readFile;
using runlet_test::TempFolder;

std::set<std::string> filesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  return names;
}

using Names = std::set<std::string>;

TEST(OutputFile, IsNew) {
  const TempFolder folder;
  const mode_t mask = umask(027);
  EXPECT_EQ(writeFile(folder.file("job.xml"), "text"), 0);
  EXPECT_EQ(umask(mask), 027U);
  EXPECT_EQ(readFile(folder.file("job.xml")), "text");
  EXPECT_EQ(modeOf(folder.file("job.xml")), 0640);
  EXPECT_EQ(filesIn(folder.path()), Names{"job.xml"});
}

TEST(OutputFile, TakesThePlaceOfAnother) {
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "the old text, which is longer", 0600);
  std::filesystem::create_hard_link(path, folder.file("old"));
  EXPECT_EQ(writeFile(path, "text"), 0);
  EXPECT_EQ(readFile(path), "text");
  EXPECT_EQ(modeOf(path), 0600);
  EXPECT_EQ(readFile(folder.file("old")), "the old text, which is longer");
  EXPECT_EQ(filesIn(folder.path()), (Names{"job.xml", "old"}));
}

TEST(OutputFile, IsWhereALinkLeads) {
  const TempFolder folder;
  folder.makeFolder("real");
  folder.write("real/job.xml", "old");
  std::filesystem::create_symlink("real/job.xml", folder.file("link"));
  EXPECT_EQ(writeFile(folder.file("link"), "text"), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
  EXPECT_EQ(readFile(folder.file("real/job.xml")), "text");
  EXPECT_EQ(filesIn(folder.file("real")), Names{"job.xml"});
}

TEST(OutputFile, MayHaveTheLongestName) {
  const TempFolder folder;
  const std::string name(255, 'n');
  EXPECT_EQ(writeFile(folder.file(name), "text"), 0);
  EXPECT_EQ(readFile(folder.file(name)), "text");
}

TEST(OutputFile, TellsWhyItCannotBeWritten) {
  const TempFolder folder;
  folder.write("file", "text");
  EXPECT_EQ(writeFile(folder.file("none/job.xml"), "text"), ENOENT);
  EXPECT_EQ(writeFile(folder.file("file/job.xml"), "text"), ENOTDIR);
  EXPECT_EQ(writeFile(folder.path(), "text"), EISDIR);
  EXPECT_EQ(writeFile("", "text"), ENOENT);
  EXPECT_EQ(filesIn(folder.path()), Names{"file"});
  EXPECT_EQ(readFile(folder.file("file")), "text");
}

TEST(OutputFile, LeavesADeviceWhatItIs) {
  struct stat before {};
  ASSERT_EQ(stat("/dev/full", &before), 0);
  EXPECT_EQ(writeFile("/dev/full", "text"), ENOSPC);
  EXPECT_EQ(writeFile("/dev/null", "text"), 0);
  struct stat after {};
  ASSERT_EQ(stat("/dev/full", &after), 0);
  EXPECT_TRUE(S_ISCHR(after.st_mode));
  EXPECT_EQ(after.st_ino, before.st_ino);
}

// Writes with the longest possible file 100 bytes long.
int writeWithLimit(const std::string& path, const std::string& text) {
  rlimit usual{};
  getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit tight{.rlim_cur = 100, .rlim_max = usual.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &tight);
  const int error = writeFile(path, text);
  setrlimit(RLIMIT_FSIZE, &usual);
  std::signal(SIGXFSZ, handler);
  return error;
}

TEST(OutputFile, StaysAsItWasWhenAWriteFails) {
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "old");
  EXPECT_EQ(writeWithLimit(path, std::string(101, 'a')), EFBIG);
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(writeWithLimit(folder.file("new.xml"), std::string(101, 'a')), EFBIG);
  EXPECT_EQ(filesIn(folder.path()), Names{"job.xml"});
}

}  // namespace
}  // namespace runlet_tool
