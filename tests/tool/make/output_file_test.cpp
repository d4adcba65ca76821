// Writing files atomically.

#include "tool/system/output_file.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

#include "adapter_test.h"
#include "temp_folder.h"
#include "tool/system/output_place.h"

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

// Ids of users, and of groups.
constexpr unsigned one = 1001;
constexpr unsigned two = 1002;

// Owner and group.
std::pair<unsigned, unsigned> ownerOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return {status.st_uid, status.st_gid};
}

void makeLink(const std::string& target, const std::string& path, unsigned owner) {
  std::filesystem::create_symlink(target, path);
  ASSERT_EQ(lchown(path.c_str(), owner, owner), 0) << path;
}

void makeSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(socket);
}

// The result of writeFile in a process of that user.
std::string reasonFor(unsigned user, const std::string& path) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0) _exit(97);
    const std::string reason = writeFile(path, "text");
    _exit(writeAll(ends[1], reason) == 0 ? 0 : 98);
  }
  close(ends[1]);
  char reason[512] = {};
  const ssize_t length = read(ends[0], reason, sizeof reason);
  close(ends[0]);
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0 && length >= 0 ? std::string(reason, static_cast<std::size_t>(length))
                                    : "status " + std::to_string(status);
}

TEST(OutputFile, IsNew) {
  const TempFolder folder;
  const mode_t mask = umask(027);
  EXPECT_EQ(writeFile(folder.file("job.xml"), "text"), "");
  EXPECT_EQ(umask(mask), 027U);
  EXPECT_EQ(readFile(folder.file("job.xml")), "text");
  EXPECT_EQ(modeOf(folder.file("job.xml")), 0640);
  EXPECT_EQ(filesIn(folder.path()), Names{"job.xml"});
}

TEST(OutputFile, ReplacesAnother) {
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "the old text, which is longer", 0600);
  std::filesystem::create_hard_link(path, folder.file("old"));
  EXPECT_EQ(writeFile(path, "text"), "");
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
  EXPECT_EQ(writeFile(folder.file("link"), "text"), "");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
  EXPECT_EQ(readFile(folder.file("real/job.xml")), "text");
  EXPECT_EQ(filesIn(folder.file("real")), Names{"job.xml"});
}

TEST(OutputFile, MayHaveTheLongestName) {
  const TempFolder folder;
  const std::string name(255, 'n');
  EXPECT_EQ(writeFile(folder.file(name), "text"), "");
  EXPECT_EQ(readFile(folder.file(name)), "text");
}

TEST(OutputFile, ReportsWhyItCannotBeWritten) {
  const TempFolder folder;
  folder.write("file", "text");
  std::filesystem::create_symlink("loop", folder.file("loop"));
  const struct {
    std::string path;
    int error;
  } rows[] = {
      {"", ENOENT},
      {folder.file("none/job.xml"), ENOENT},
      {folder.file("none/"), ENOENT},
      {folder.file("file/job.xml"), ENOTDIR},
      {folder.file("file/"), ENOTDIR},
      {folder.file("loop"), ELOOP},
      {folder.file("loop/job.xml"), ELOOP},
      {folder.file(std::string(256, 'n')), ENAMETOOLONG},
      {folder.path() + std::string(4096, '/') + "job.xml", ENAMETOOLONG},
      {folder.path(), EISDIR},
      {folder.path() + "/", EISDIR},
      {folder.file("."), EISDIR},
      {folder.file(".."), EISDIR},
      {"/", EISDIR},
      {".", EISDIR},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(writeFile(row.path, "text"), std::strerror(row.error)) << row.path;
  }
  EXPECT_EQ(filesIn(folder.path()), (Names{"file", "loop"}));
  EXPECT_EQ(readFile(folder.file("file")), "text");
}

// Never on the system's own devices: if this fails while root runs the tests, they would be
// replaced for everyone.
TEST(OutputFile, IsNothingButARegularFile) {
  const TempFolder folder;
  Names names = {"pipe", "socket"};
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  makeSocket(folder.file("socket"));
  EXPECT_EQ(writeFile(folder.file("pipe"), "text"), "not a regular file but a pipe");
  EXPECT_EQ(writeFile(folder.file("socket"), "text"), "not a regular file but a socket");
  // a device like /dev/null, if the machine lets us create one
  if (mknod(folder.file("device").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0) {
    names.insert("device");
    EXPECT_EQ(writeFile(folder.file("device"), "text"), "not a regular file but a device");
    EXPECT_TRUE(std::filesystem::is_character_file(folder.file("device")));
  }
  EXPECT_TRUE(std::filesystem::is_fifo(folder.file("pipe")));
  EXPECT_TRUE(std::filesystem::is_socket(folder.file("socket")));
  EXPECT_EQ(filesIn(folder.path()), names);
}

TEST(OutputFile, KeepsNoMoreThanPermissions) {
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "old", 07751);
  EXPECT_EQ(writeFile(path, "text"), "");
  EXPECT_EQ(readFile(path), "text");
  EXPECT_EQ(modeOf(path), 0751);
}

TEST(OutputFile, OfAnotherUserStaysTheirs) {
  REQUIRE_ROOT();
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "old");
  ASSERT_EQ(chown(path.c_str(), one, two), 0);
  ASSERT_EQ(chmod(path.c_str(), 06777), 0);
  EXPECT_EQ(writeFile(path, "text"), "");
  EXPECT_EQ(readFile(path), "text");
  EXPECT_EQ(ownerOf(path), std::make_pair(one, two));
  EXPECT_EQ(modeOf(path), 0777);
}

TEST(OutputFile, OfAnotherUserIsNotTaken) {
  REQUIRE_ROOT();
  const TempFolder folder;
  folder.makeFolder("shared", 0777);
  const std::string path = folder.write("shared/job.xml", "old", 0666);
  EXPECT_EQ(reasonFor(one, path),
            "cannot keep its owner and group: " + std::string(std::strerror(EPERM)));
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(ownerOf(path), std::make_pair(0U, 0U));
  EXPECT_EQ(filesIn(folder.file("shared")), Names{"job.xml"});
}

// Anyone who may write to a folder for root's jobs could otherwise have any file of root's
// replaced.
TEST(OutputFile, IsNotWhereALinkOfAnotherUserLeads) {
  REQUIRE_ROOT();
  const TempFolder folder;
  folder.makeFolder("real", 0777);
  folder.write("real/job.xml", "old");
  makeLink("real/job.xml", folder.file("link"), two);
  makeLink("real", folder.file("folder"), two);
  makeLink("link", folder.file("second"), 0);
  const std::string end = " belongs to user 1002 and is not followed";
  for (const unsigned user : {0U, one}) {
    EXPECT_EQ(reasonFor(user, folder.file("link")), "the link link" + end);
    EXPECT_EQ(reasonFor(user, folder.file("second")), "the link link" + end);
    EXPECT_EQ(reasonFor(user, folder.file("folder/job.xml")), "the link folder" + end);
    EXPECT_EQ(reasonFor(user, folder.file("folder/new.xml")), "the link folder" + end);
  }
  EXPECT_EQ(readFile(folder.file("real/job.xml")), "old");
  EXPECT_EQ(filesIn(folder.file("real")), Names{"job.xml"});
}

TEST(OutputFile, IsWhereALinkOfTheCallersOrOfRootsLeads) {
  REQUIRE_ROOT();
  const TempFolder folder;
  folder.makeFolder("real", 0777);
  makeLink(folder.file("real"), folder.file("roots"), 0);
  makeLink("roots/.//", folder.file("theirs"), one);
  EXPECT_EQ(reasonFor(one, folder.file("theirs/job.xml")), "");
  EXPECT_EQ(readFile(folder.file("real/job.xml")), "text");
  EXPECT_EQ(ownerOf(folder.file("real/job.xml")), std::make_pair(one, one));
}

// A link of root's that another user has moved, or hard-linked.
TEST(OutputFile, IsNotWhereALinkLeadsThatOthersMayHaveMoved) {
  REQUIRE_ROOT();
  const TempFolder folder;
  const std::string target = folder.write("target.xml", "old");
  const std::string refusal = " is in a place that others can write to, and is not followed";
  const struct {
    const char* folder;
    unsigned owner;
    unsigned mode;
    bool isFollowed;
  } rows[] = {
      {"theirs", one, 0755, false}, {"open", 0, 0777, false},  {"groups", 0, 0775, false},
      {"sticky", 0, 01777, false},  {"closed", 0, 0755, true},
  };
  for (const auto& row : rows) {
    const std::string place = folder.makeFolder(row.folder);
    ASSERT_EQ(chown(place.c_str(), row.owner, row.owner), 0);
    ASSERT_EQ(chmod(place.c_str(), row.mode), 0);
    makeLink(target, place + "/link", 0);
    EXPECT_EQ(writeFile(place + "/link", "text"), row.isFollowed ? "" : "the link link" + refusal)
        << row.folder;
  }
  // Their folder could be another user's, which they have moved.
  folder.makeFolder("theirs/closed");
  makeLink(target, folder.file("theirs/closed/link"), 0);
  EXPECT_EQ(writeFile(folder.file("theirs/closed/link"), "text"), "the link link" + refusal);
  const std::string link = folder.file("closed/link");
  const std::string second = folder.file("closed/second");
  ASSERT_EQ(linkat(AT_FDCWD, link.c_str(), AT_FDCWD, second.c_str(), 0), 0);
  EXPECT_EQ(writeFile(second, "text"), "the link second" + refusal);
}

// Empty if there is none, or the file system does not support lists.
std::string accessList(const std::string& path) {
  char list[1024];
  const ssize_t size = getxattr(path.c_str(), accessListName, list, sizeof list);
  return size < 0 ? "" : std::string(list, static_cast<std::size_t>(size));
}

// In the mode, the mask of the list replaces the group's permissions.
TEST(OutputFile, KeepsItsAccessList) {
  struct Entry {
    std::uint16_t tag;
    std::uint16_t rights;
    std::uint32_t id;
  };
  const struct {
    std::uint32_t version;
    Entry entries[5];
  } list = {2, {{1, 6, ~0U}, {2, 6, one}, {4, 0, ~0U}, {16, 6, ~0U}, {32, 0, ~0U}}};
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "old", 0640);
  setxattr(path.c_str(), accessListName, &list, sizeof list, 0);
  const std::string before = accessList(path);
  const int mode = modeOf(path);
  EXPECT_EQ(writeFile(path, "text"), "");
  EXPECT_EQ(readFile(path), "text");
  EXPECT_EQ(accessList(path), before);
  EXPECT_EQ(modeOf(path), mode);
}

// With the sticky bit, as /tmp: users can remove and rename only their own entries.
TEST(OutputFile, MayBeInAStickyFolder) {
  const TempFolder folder;
  folder.makeFolder("sticky", 01777);
  const std::string path = folder.file("sticky/job.xml");
  for (const char* text : {"new", "and replaced"}) {
    EXPECT_EQ(writeFile(path, text), "");
    EXPECT_EQ(readFile(path), text);
  }
  EXPECT_EQ(filesIn(folder.file("sticky")), Names{"job.xml"});
}

// For files of various owners in it, as root and as an ordinary user.
TEST(OutputFile, InAStickyFolderStaysItsOwners) {
  REQUIRE_ROOT();
  const std::string notTaken =
      "cannot keep its owner and group: " + std::string(std::strerror(EPERM));
  const struct {
    unsigned owner;
    unsigned user;
    std::string reason;
  } rows[] = {{one, 0, ""},       {one, one, ""},       {0, 0, ""},
              {0, one, notTaken}, {two, one, notTaken}, {one, two, notTaken}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.owner) + " " + std::to_string(row.user));
    const TempFolder folder;
    folder.makeFolder("sticky", 01777);
    const std::string path = folder.write("sticky/job.xml", "old", 0666);
    ASSERT_EQ(chown(path.c_str(), row.owner, row.owner), 0);
    makeLink("job.xml", folder.file("sticky/link"), two);
    EXPECT_EQ(reasonFor(row.user, path), row.reason);
    EXPECT_EQ(readFile(path), row.reason.empty() ? "text" : "old");
    EXPECT_EQ(ownerOf(path), std::make_pair(row.owner, row.owner));
    const std::string whose = row.user == two ? "is in a place that others can write to, and"
                                              : "belongs to user 1002 and";
    EXPECT_EQ(reasonFor(row.user, folder.file("sticky/link")),
              "the link link " + whose + " is not followed");
    EXPECT_EQ(ownerOf(path), std::make_pair(row.owner, row.owner));
    EXPECT_EQ(filesIn(folder.file("sticky")), (Names{"job.xml", "link"}));
  }
}

TEST(OutputFile, DoesNotGetTheAccessListOfItsFolder) {
  struct Entry {
    std::uint16_t tag;
    std::uint16_t rights;
    std::uint32_t id;
  };
  const struct {
    std::uint32_t version;
    Entry entries[5];
  } list = {2, {{1, 7, ~0U}, {2, 6, one}, {4, 0, ~0U}, {16, 7, ~0U}, {32, 0, ~0U}}};
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "old", 0660);
  setxattr(folder.path().c_str(), "system.posix_acl_default", &list, sizeof list, 0);
  EXPECT_EQ(writeFile(path, "text"), "");
  EXPECT_EQ(accessList(path), "");
  EXPECT_EQ(modeOf(path), 0660);
}

// Such as /dev/stdout if it is a pipe: no file can be renamed to that.
TEST(OutputFile, MayBeADescriptor) {
  const TempFolder folder;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string path = folder.file("stdout");
  std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(ends[1]), path);
  EXPECT_EQ(writeFile(path, "text"), "");
  char text[8] = {};
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  EXPECT_EQ(read(ends[0], text, sizeof text), 4);
  EXPECT_STREQ(text, "text");
  close(ends[0]);
  close(ends[1]);
  EXPECT_TRUE(std::filesystem::is_symlink(path));
}

TEST(OutputFile, MayBeADescriptorThatIsAppendedTo) {
  const TempFolder folder;
  const std::string path = folder.write("log", "old ");
  const int log = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  EXPECT_EQ(writeFile("/proc/self/fd/" + std::to_string(log), "text"), "");
  close(log);
  EXPECT_EQ(readFile(path), "old text");
  EXPECT_EQ(writeFile("/proc/self/fd/" + std::to_string(log), "text"), std::strerror(EBADF));
}

TEST(OutputPlace, IsADescriptorOfThatName) {
  const struct {
    const char* path;
    int stream;
  } rows[] = {
      {"/dev/stdout", 1},
      {"/dev/stderr", 2},
      {"/dev/fd/63", 63},
      {"/proc/self/fd/7", 7},
  };
  for (const auto& row : rows) {
    OutputPlace place;
    EXPECT_EQ(findOutputPlace(row.path, &place), "") << row.path;
    EXPECT_EQ(place.stream, row.stream) << row.path;
  }
}

TEST(OutputPlace, IsNotADescriptorUnderAnyOtherName) {
  for (const char* path : {"/dev/stdouts", "/dev/fd/", "/dev/fd/1x", "/dev/fd/-1", "dev/fd/1"}) {
    OutputPlace place;
    findOutputPlace(path, &place);
    EXPECT_EQ(place.stream, -1) << path;
  }
}

TEST(OutputFile, LeavesALinkThatLeadsNowhere) {
  const TempFolder folder;
  std::filesystem::create_symlink("none", folder.file("link"));
  EXPECT_EQ(writeFile(folder.file("link"), "text"), std::strerror(ENOENT));
  EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
  EXPECT_EQ(filesIn(folder.path()), Names{"link"});
}

// Writes with a file size limit of 100 bytes.
std::string writeWithLimit(const std::string& path, const std::string& text) {
  rlimit usual{};
  getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit tight{.rlim_cur = 100, .rlim_max = usual.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &tight);
  std::string reason = writeFile(path, text);
  setrlimit(RLIMIT_FSIZE, &usual);
  std::signal(SIGXFSZ, handler);
  return reason;
}

TEST(OutputFile, StaysAsItWasWhenAWriteFails) {
  const TempFolder folder;
  const std::string path = folder.write("job.xml", "old");
  EXPECT_EQ(writeWithLimit(path, std::string(101, 'a')), std::strerror(EFBIG));
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(writeWithLimit(folder.file("new.xml"), std::string(101, 'a')), std::strerror(EFBIG));
  EXPECT_EQ(filesIn(folder.path()), Names{"job.xml"});
}

}  // namespace
}  // namespace runlet_tool
