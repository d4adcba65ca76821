// Paths, descriptors, and files in memory.
#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace runlet_tool {

// `path` itself if it is absolute or empty, or if `folder` is empty; otherwise `path` relative to
// `folder`. Links and dots are not resolved.
std::string fullPath(const std::string& folder, const std::string& path);

// The path without links and dots; `path` itself if there is no such file.
std::string realPath(const std::string& path);

// The path of the current folder; empty if it has been deleted.
std::string currentFolder();

// The path of the running program.
std::string ownPath();

// The arguments of the running program, without its name.
std::vector<std::string> ownArguments();

// Opens /dev/null for every closed standard stream, so that no other descriptor gets its number.
void openStreams();

// A file in memory with a path by which this process can open it during the object's lifetime.
class MemoryFile {
 public:
  // Check error() before using it.
  explicit MemoryFile(std::string_view text);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // 0, or why the file does not have its text, as an error number.
  int error() const {
    return error_;
  }

  std::string path() const {
    return "/proc/self/fd/" + std::to_string(descriptor_);
  }

 private:
  int descriptor_;
  int error_;
};

// Owns a descriptor and closes it; -1 = none.
class OwnDescriptor {
 public:
  explicit OwnDescriptor(int number = -1) : number_(number) {}
  ~OwnDescriptor();
  OwnDescriptor(const OwnDescriptor&) = delete;
  OwnDescriptor& operator=(const OwnDescriptor&) = delete;
  OwnDescriptor(OwnDescriptor&&) = delete;
  OwnDescriptor& operator=(OwnDescriptor&& other) noexcept;

  int number() const {
    return number_;
  }

  // Gives it up without closing it.
  int release() {
    return std::exchange(number_, -1);
  }

 private:
  int number_;
};

// Moves `descriptor`, which may be -1, above the standard streams, which may be closed. The result
// closes on exec. Returns -1, with the reason in errno, on failure.
int aboveStreams(int descriptor);

// Opens the folder that `path` names, for openat and the like: not what a link in its place leads
// to, and only if it belongs to the calling user and nobody else may write to it. Whoever may write
// to the folder above could otherwise exchange it for another one.
//
// Returns -1, with a reason in errno, on failure. If there is a folder or link that must not be
// used, `*refusal` then says why, calling it `called`: "it is a link", "it belongs to user 1001" or
// "others may write to it"; otherwise it is empty.
int openOwnFolder(std::string path, const std::string& called, std::string* refusal);

// Returns a file in memory with that text, to be passed between processes; -1 with the reason in
// errno on failure.
int textInMemory(std::string_view text);

// The text of such a file; empty if there is none.
std::string textOfMemory(int descriptor);

// The reason in errno for what is no regular file; opening a file never fails with it.
inline constexpr int notRegular = EMEDIUMTYPE;

// Opens a regular file. A path that is not absolute is looked for in `folder`, a descriptor.
// `flags` are those of open; with O_NOFOLLOW, a link in its place fails with ELOOP. Opening
// anything else, such as a device, may already do something, so the file is looked at first, and
// then opened is what was looked at. The descriptor closes on exec. Returns -1, with the reason in
// errno, on failure.
int openRegularFile(const std::string& path, int flags, int folder);

// The same in the current folder.
int openRegularFile(const std::string& path, int flags);

// The text for an error number of these functions.
const char* openFailure(int error);

// Reads the whole file. False if it is not a regular one, which is not even opened, or cannot be
// read.
bool readRegularFile(const std::string& path, std::string* text);

// Writes all of the text. Returns 0, or the error number.
int writeAll(int descriptor, std::string_view text);

}  // namespace runlet_tool
