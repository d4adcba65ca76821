// A file that is in memory alone.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

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

}  // namespace runlet_tool
