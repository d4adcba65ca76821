// Paths, descriptors, and files in memory.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// `path` itself where it begins with "/" or is empty, otherwise as seen from `folder`, which may be
// empty for want of one. Links and dots stay.
std::string fullPath(const std::string& folder, const std::string& path);

// The current folder; empty when it has none any more.
std::string currentFolder();

// Where the file of the running program is.
std::string ownPath();

// Opens /dev/null in place of those that are closed, so that no other descriptor gets their number.
void openStreams();

// Has a path that this process can open it by, as long as the object lives.
class MemoryFile {
 public:
  // Look at error() before anything is done with it.
  explicit MemoryFile(std::string_view text);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // 0, or the error number for which the file has not got its text.
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

// A descriptor that is closed with its owner; -1 for none.
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

 private:
  int number_;
};

// A descriptor of the same file above those of the standard streams, which may be closed; it closes
// on exec. Takes over `descriptor`, which may be -1. -1, with the reason in errno, where there is
// none.
int aboveStreams(int descriptor);

// Writes all of the text. Yields 0, or the error number of what failed.
int writeAll(int descriptor, std::string_view text);

}  // namespace runlet_tool
