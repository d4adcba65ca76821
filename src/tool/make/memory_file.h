// A file that is in memory alone.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// Has a path that this process can open it by, as long as the object lives.
class MemoryFile {
 public:
  // Raises std::system_error where the system has no room for it.
  explicit MemoryFile(std::string_view text);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const {
    return "/proc/self/fd/" + std::to_string(descriptor_);
  }

 private:
  int descriptor_;
};

}  // namespace runlet_tool
