#include "temp_folder.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace runlet_test {

TempFolder::TempFolder(const std::string& parent) {
  // mkdtemp replaces the last letters
  std::string name = parent + "/runlet-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr || chmod(name.c_str(), 0755) != 0) {
    throw std::runtime_error("cannot make a folder in " + parent);
  }
  path_ = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::write(const std::string& name, const std::string& text,
                              unsigned mode) const {
  const std::string path = file(name);
  std::ofstream(path, std::ios::binary) << text;
  if (chmod(path.c_str(), mode) != 0) throw std::runtime_error("cannot write " + path);
  return path;
}

std::string TempFolder::makeFolder(const std::string& name, unsigned mode) const {
  const std::string path = file(name);
  if (mkdir(path.c_str(), 0700) != 0 || chmod(path.c_str(), mode) != 0) {
    throw std::runtime_error("cannot make " + path);
  }
  return path;
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

int modeOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return -1;
  return static_cast<int>(status.st_mode & 07777U);
}

}  // namespace runlet_test
