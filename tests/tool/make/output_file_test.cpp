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
  EXPECT_EQ(filesIn(folder.path()), Names{"file"});
  EXPECT_EQ(readFile(folder.file("file")), "text");
}

// On a pipe, never on the system's own devices: where this fails, and root runs the tests, they
// would be replaced for everyone.
TEST(OutputFile, LeavesAPipeWhatItIs) {
  const TempFolder folder;
  const std::string path = folder.file("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(writeFile(path, "text"), 0);
  char text[8] = {};
  EXPECT_EQ(read(reader, text, sizeof text), 4);
  EXPECT_STREQ(text, "text");
  close(reader);
  EXPECT_TRUE(std::filesystem::is_fifo(path));
  EXPECT_EQ(filesIn(folder.path()), Names{"pipe"});
}

// As /dev/stdout is one where that is a pipe: there is no such path to rename to.
TEST(OutputFile, MayBeADescriptor) {
  const TempFolder folder;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string path = folder.file("stdout");
  std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(ends[1]), path);
  EXPECT_EQ(writeFile(path, "text"), 0);
  char text[8] = {};
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  EXPECT_EQ(read(ends[0], text, sizeof text), 4);
  EXPECT_STREQ(text, "text");
  close(ends[0]);
  close(ends[1]);
  EXPECT_TRUE(std::filesystem::is_symlink(path));
}

TEST(OutputFile, LeavesALinkThatLeadsNowhere) {
  const TempFolder folder;
  std::filesystem::create_symlink("none", folder.file("link"));
  EXPECT_EQ(writeFile(folder.file("link"), "text"), ENOENT);
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
  EXPECT_EQ(filesIn(folder.path()), Names{"link"});
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
