// The last lines of logs, which anybody may have written.

#include "tool/report/log_end.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "adapter_test.h"
#include "temp_folder.h"
#include "tool/system/files.h"

namespace runlet_tool {
namespace {

using runlet_test::TempFolder;
using Lines = std::vector<std::string>;

// The end of the log of a task of this process's user.
LogEnd endOf(const std::string& path, std::size_t mostLines) {
  Record record;
  Session& session = record.sessions.emplace_back();
  session.uid = static_cast<std::int32_t>(geteuid());
  session.gid = static_cast<std::int32_t>(getegid());
  record.attempts.emplace_back().log = path;
  return readLogEnds(record, {0}, mostLines).at(0);
}

TEST(LogEnd, IsItsLastLines) {
  const TempFolder folder;
  const std::string longLine(5000, 'x');
  const struct {
    std::string text;
    Lines lines;
  } rows[] = {
      {"", {}},
      {"one", {"one"}},
      {"one\n", {"one"}},
      {"one\ntwo\nthree\n", {"two", "three"}},
      {"one\r\n\n", {"one", ""}},
      {"a\033[2J\xff\xe2\x80\xae\n", {"a\\x1b[2J\\xff\\u202e"}},
      {longLine, {std::string(200, 'x') + "..."}},
      {"one\n" + longLine + "\nend\n", {"end"}},  // begins within a line
      {"one\n" + std::string(4092, 'x') + "\nt\n", {std::string(200, 'x') + "...", "t"}},
      {"one\n" + std::string(4094, 'x') + "\n", {std::string(200, 'x') + "..."}},
  };
  for (const auto& row : rows) {
    const LogEnd end = endOf(folder.write("log", row.text), 2);
    EXPECT_EQ(end.note, "");
    EXPECT_EQ(end.lines, row.lines) << row.text.substr(0, 40);
  }
}

// What is in place of a log is not even opened: opening this one would fail with another reason.
TEST(LogEnd, IsLookedAtFirst) {
  const TempFolder folder;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  folder.file("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  const OwnDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(bind(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(endOf(folder.file("socket"), 5).note, "cannot be read: not a regular file");
}

// Those of each session with the rights of its user.
TEST(LogEnd, IsReadForSeveralAttemptsAtOnce) {
  REQUIRE_ROOT();
  const TempFolder folder;
  Record record;
  for (const std::int32_t uid : {0, 62001, -1}) {
    record.sessions.emplace_back().uid = uid;
    record.sessions.back().gid = 0;
    const std::string own = std::to_string(uid);
    folder.makeFolder(own);
    for (const std::string name : {"root", "all"}) {
      Attempt& attempt = record.attempts.emplace_back();
      attempt.session = record.sessions.size() - 1;
      attempt.log = folder.write(own + "/" + name, name, name == "root" ? 0600 : 0644);
    }
    ASSERT_EQ(chown(folder.file(own).c_str(), static_cast<uid_t>(std::max(uid, 0)), 0), 0);
  }
  std::string text;
  for (const LogEnd& end : readLogEnds(record, {5, 2, 1, 0, 3, 4, 3}, 5)) {
    text += end.note;
    for (const std::string& line : end.lines) text += line;
    text += "\n";
  }
  const std::string invalid = "cannot be read: " + std::string(std::strerror(EINVAL)) + "\n";
  EXPECT_EQ(text, invalid + "cannot be read: " + std::strerror(EACCES) + "\nall\nroot\nall\n" +
                      invalid + "all\n");
}

TEST(LogEnd, IsReadFromRegularFilesOnly) {
  const TempFolder folder;
  folder.write("log", "text");
  std::filesystem::create_symlink(folder.file("log"), folder.file("link"));
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  const std::string unreadable = "cannot be read: ";
  const struct {
    std::string path;
    std::string note;
  } rows[] = {
      {folder.file("none"), unreadable + std::strerror(ENOENT)},
      {folder.file("link"), unreadable + std::strerror(ELOOP)},
      {folder.file("pipe"), unreadable + "not a regular file"},
      {folder.makeFolder("folder"), unreadable + "not a regular file"},
      {"none", unreadable + std::strerror(ENOENT)},
      {"/dev/zero",
       unreadable + (geteuid() == 0 ? "not a regular file" : "its folder belongs to user 0")},
      {"/proc/" + std::to_string(getpid()) + "/mem", ""},  // of no size
  };
  for (const auto& row : rows) {
    const LogEnd end = endOf(row.path, 5);
    EXPECT_EQ(end.note, row.note) << row.path;
    EXPECT_EQ(end.lines, Lines()) << row.path;
  }
}

}  // namespace
}  // namespace runlet_tool
