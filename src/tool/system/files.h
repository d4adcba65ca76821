// Paths, descriptors, and files in memory.
#pragma once

#include <string>
#include <string_view>
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

 private:
  int number_;
};

// Moves `descriptor`, which may be -1, above the standard streams, which may be closed. The result
// closes on exec. Returns -1, with the reason in errno, on failure.
int aboveStreams(int descriptor);

// Reads the whole file. False if it is not a regular one, which is not even opened, or cannot be
// read.
bool readRegularFile(const std::string& path, std::string* text);

// Writes all of the text. Returns 0, or the error number.
int writeAll(int descriptor, std::string_view text);

}  // namespace runlet_tool
