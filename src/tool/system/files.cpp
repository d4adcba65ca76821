#include "tool/system/files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace runlet_tool {
namespace fs = std::filesystem;
namespace {

// Why a folder or link must not be used by openOwnFolder; empty if it may.
std::string refusalOf(const struct stat& status, const std::string& called) {
  if (S_ISLNK(status.st_mode)) return called + " is a link";
  if (!S_ISDIR(status.st_mode)) return "";
  if (status.st_uid != geteuid()) {
    return called + " belongs to user " + std::to_string(status.st_uid);
  }
  // With an access control list, the group's bits are the most that it grants.
  const bool isOpen = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return isOpen ? "others may write to " + called : "";
}

}  // namespace

std::string fullPath(const std::string& folder, const std::string& path) {
  if (path.empty() || path.front() == '/' || folder.empty()) return path;
  return folder.ends_with('/') ? folder + path : folder + "/" + path;
}

std::string realPath(const std::string& path) {
  char* const real = realpath(path.c_str(), nullptr);
  std::string result = real == nullptr ? path : real;
  std::free(real);
  return result;
}

std::string currentFolder() {
  std::error_code error;
  return fs::current_path(error).string();
}

std::string ownPath() {
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error).string();
}

std::vector<std::string> ownArguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> all;
  for (std::string word; std::getline(file, word, '\0');) all.push_back(word);
  if (!all.empty()) all.erase(all.begin());
  return all;
}

void openStreams() {
  int opened = 0;
  while (opened >= 0 && opened <= STDERR_FILENO) opened = open("/dev/null", O_RDWR);
  close(opened);
}

MemoryFile::MemoryFile(std::string_view text)
    : descriptor_(memfd_create("runlet-job", MFD_CLOEXEC)),
      error_(descriptor_ == -1 ? errno : writeAll(descriptor_, text)) {}

MemoryFile::~MemoryFile() {
  if (descriptor_ != -1) close(descriptor_);
}

OwnDescriptor::~OwnDescriptor() {
  if (number_ != -1) close(number_);
}

OwnDescriptor& OwnDescriptor::operator=(OwnDescriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

int aboveStreams(int descriptor) {
  if (descriptor == -1) return -1;
  const int above = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return above;
}

int openOwnFolder(std::string path, const std::string& called, std::string* refusal) {
  refusal->clear();
  // With a slash at the end, a link would be followed.
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  OwnDescriptor place(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (place.number() == -1 || fstat(place.number(), &status) != 0) return -1;
  *refusal = refusalOf(status, called);
  errno = refusal->empty() ? ENOTDIR : EPERM;
  return S_ISDIR(status.st_mode) && refusal->empty() ? place.release() : -1;
}

int textInMemory(std::string_view text) {
  OwnDescriptor file(memfd_create("runlet-job", MFD_CLOEXEC));
  return file.number() != -1 && writeAll(file.number(), text) == 0 ? file.release() : -1;
}

std::string textOfMemory(int descriptor) {
  struct stat status {};
  fstat(descriptor, &status);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t length = pread(descriptor, text.data(), text.size(), 0);
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return text;
}

int openRegularFile(const std::string& path, int flags, int folder) {
  const int links = flags & O_NOFOLLOW;
  const OwnDescriptor place(openat(folder, path.c_str(), O_PATH | O_CLOEXEC | links));
  struct stat status {};
  if (place.number() == -1 || fstat(place.number(), &status) != 0) return -1;
  errno = S_ISLNK(status.st_mode) ? ELOOP : notRegular;
  if (!S_ISREG(status.st_mode)) return -1;
  const std::string link = "/proc/self/fd/" + std::to_string(place.number());
  return open(link.c_str(), (flags & ~O_NOFOLLOW) | O_CLOEXEC);
}

int openRegularFile(const std::string& path, int flags) {
  return openRegularFile(path, flags, AT_FDCWD);
}

const char* openFailure(int error) {
  return error == notRegular ? "not a regular file" : std::strerror(error);
}

bool readRegularFile(const std::string& path, std::string* text) {
  const OwnDescriptor file(openRegularFile(path, O_RDONLY));
  if (file.number() == -1) return false;
  // Files such as those in /proc do not know their size.
  char part[1 << 16];
  text->clear();
  ssize_t count = -1;
  while ((count = read(file.number(), part, sizeof part)) > 0) {
    text->append(part, static_cast<std::size_t>(count));
  }
  return count == 0;
}

int writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

}  // namespace runlet_tool
