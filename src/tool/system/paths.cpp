#include "tool/system/paths.h"

#include <filesystem>

namespace runlet_tool {

namespace fs = std::filesystem;

std::string fullPath(const std::string& folder, const std::string& path) {
  if (path.empty() || path.front() == '/' || folder.empty()) return path;
  return folder.ends_with('/') ? folder + path : folder + "/" + path;
}

std::string currentFolder() {
  std::error_code error;
  return fs::current_path(error).string();
}

std::string ownPath() {
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error).string();
}

}  // namespace runlet_tool
