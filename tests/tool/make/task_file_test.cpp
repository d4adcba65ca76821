// Task files: one task per line, and what is refused.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "temp_folder.h"
#include "tool/make/tasks.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

using runlet_test::TempFolder;

struct GoodRow {
  const char* what;
  std::string text;
  std::vector<std::string> tasks;
};

TEST(TaskFile, GivesItsTasks) {
  const std::vector<GoodRow> rows = {
      {"a line", "one\n", {"one"}},
      {"without its line end", "one", {"one"}},
      {"several", "one\ntwo\nthree\n", {"one", "two", "three"}},
      {"fields", "wall\t12\tred\n", {"wall\t12\tred"}},
      {"empty fields but the last", "\t\tx\n", {"\t\tx"}},
      {"CR LF", "one\r\ntwo\r\n", {"one", "two"}},
      {"a byte order mark", "\xef\xbb\xbfone\n", {"one"}},
      {"one that is not at the beginning", "one\n\xef\xbb\xbftwo\n", {"one", "\xef\xbb\xbftwo"}},
      {"spaces", " \n  a  b  \n", {" ", "  a  b  "}},
      {"the same line twice", "a\na\n", {"a", "a"}},
      {"markup", "<a>&amp;]]>{}}{\n", {"<a>&amp;]]>{}}{"}},
      {"characters",
       "\xc3\xa4\xe2\x82\xac\xf0\x9f\x8e\xac\x7f\n",
       {"\xc3\xa4\xe2\x82\xac\xf0\x9f\x8e\xac\x7f"}},
      {"the longest", std::string(1999, 'a') + "\n", {std::string(1999, 'a')}},
  };
  const TempFolder folder;
  for (const GoodRow& row : rows) {
    SCOPED_TRACE(row.what);
    runlet::StringList tasks;
    Complaint complaint;
    const std::string path = folder.write("tasks.tsv", row.text);
    EXPECT_TRUE(readTaskFile(path, &tasks, &complaint)) << complaint.text;
    EXPECT_EQ(tasks, row.tasks);
  }
}

struct BadRow {
  const char* what;
  std::string text;
  std::string complaint;  // without the path
};

TEST(TaskFile, RefusesInvalidLines) {
  using namespace std::string_literals;
  const std::string shownLine(60, 'a');
  const std::vector<BadRow> rows = {
      {"an empty first line", "\n", ":1: '': empty line"},
      {"an empty line", "a\n\nb\n", ":2: '': empty line"},
      {"an empty line of CR LF", "a\r\n\r\n", ":2: '': empty line"},
      {"an empty line at the end", "a\n\n", ":2: '': empty line"},
      {"an empty last field", "a\nb\t\n",
       ":2: $'b\\011': the last field is empty and would be read as \"Undefined\""},
      {"empty fields alone", "\t\n",
       ":1: $'\\011': the last field is empty and would be read as \"Undefined\""},
      {"an empty last field in CR LF", "b\t\r\n",
       ":1: $'b\\011': the last field is empty and would be read as \"Undefined\""},
      {"a long line", std::string(2000, 'a') + "\n",
       ":1: " + shownLine + "...: 2000 bytes; the limit is 1999"},
      {"CR in a line", "a\rb\n", ":1: $'a\\015b': CR inside the line"},
      {"CR at the end of the file", "a\r", ":1: $'a\\015': CR inside the line"},
      {"NUL", "a\0b\n"s, ":1: $'a\\000b': XML has no character U+0000, at byte 2"},
      {"a control character", "ok\na\x1b[m\n",
       ":2: $'a\\033[m': XML has no character U+001B, at byte 2"},
      {"Latin-1", "b\xe4r\n", ":1: $'b\\344r': the byte 0xE4 is not UTF-8, at byte 2"},
      {"a character cut off", "b\xc3\n", ":1: $'b\\303': the byte 0xC3 is not UTF-8, at byte 2"},
      {"U+FFFF", "\xef\xbf\xbf\n", ":1: '\xef\xbf\xbf': XML has no character U+FFFF, at byte 1"},
  };
  const TempFolder folder;
  for (const BadRow& row : rows) {
    SCOPED_TRACE(row.what);
    runlet::StringList tasks;
    Complaint complaint;
    const std::string path = folder.write("tasks.tsv", row.text);
    EXPECT_FALSE(readTaskFile(path, &tasks, &complaint));
    EXPECT_EQ(complaint.text, path + row.complaint);
    EXPECT_EQ(complaint.status, exitFailing);
  }
}

TEST(TaskFile, RefusesAFileWithoutATask) {
  const TempFolder folder;
  for (const char* text : {"", "\xef\xbb\xbf"}) {
    runlet::StringList tasks;
    Complaint complaint;
    const std::string path = folder.write("tasks.tsv", text);
    EXPECT_FALSE(readTaskFile(path, &tasks, &complaint));
    EXPECT_EQ(complaint.text, "--tasks " + path + ": the file is empty");
    EXPECT_EQ(complaint.status, exitFailing);
  }
}

TEST(TaskFile, ReportsWhyItCannotBeRead) {
  const TempFolder folder;
  runlet::StringList tasks;
  Complaint complaint;
  EXPECT_FALSE(readTaskFile(folder.file("none"), &tasks, &complaint));
  EXPECT_EQ(complaint.text, "--tasks " + folder.file("none") + ": No such file or directory");
  EXPECT_EQ(complaint.status, exitUnreadable);
  EXPECT_FALSE(readTaskFile(folder.path(), &tasks, &complaint));
  EXPECT_EQ(complaint.text, "--tasks " + folder.path() + ": Is a directory");
  EXPECT_EQ(complaint.status, exitUnreadable);
}

constexpr char tooLarge[] = ": larger than 128 MiB, the limit for a job file";

TEST(TaskFile, RefusesMoreThanAJobMayHave) {
  const TempFolder folder;
  const std::string path = folder.write("tasks.tsv", "");
  std::filesystem::resize_file(path, maxTaskFileSize + 1);
  runlet::StringList tasks;
  Complaint complaint;
  EXPECT_FALSE(readTaskFile(path, &tasks, &complaint));
  EXPECT_EQ(complaint.text, "--tasks " + path + tooLarge);
  EXPECT_EQ(complaint.status, exitUnreadable);
  std::filesystem::resize_file(path, maxTaskFileSize);
  EXPECT_FALSE(readTaskFile(path, &tasks, &complaint));
  EXPECT_EQ(complaint.text, path + ":1: " + shortShellWord(std::string(60, '\0')) +
                                "...: 134217728 bytes; the limit is 1999");
  EXPECT_TRUE(tasks.empty());
}

TEST(TaskFile, RefusesAnEndlessPipe) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen("exec yes task", "re"), pclose);
  ASSERT_NE(pipe, nullptr);
  const std::string path = "/proc/self/fd/" + std::to_string(fileno(pipe.get()));
  runlet::StringList tasks;
  Complaint complaint;
  EXPECT_FALSE(readTaskFile(path, &tasks, &complaint));
  EXPECT_EQ(complaint.text, "--tasks " + path + tooLarge);
  EXPECT_TRUE(tasks.empty());
}

TEST(TaskFile, IsNotADevice) {
  runlet::StringList tasks;
  Complaint complaint;
  for (const std::string path : {"/dev/zero", "/dev/null"}) {
    EXPECT_FALSE(readTaskFile(path, &tasks, &complaint));
    EXPECT_EQ(complaint.text, "--tasks " + path + ": a device; expected a file or a pipe");
    EXPECT_EQ(complaint.status, exitUnreadable);
  }
}

}  // namespace
}  // namespace runlet_tool
