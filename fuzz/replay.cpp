// Runs a fuzz target on existing files, for compilers without a fuzzer and for the tests.
//
//   fuzz_TARGET FILE_OR_FOLDER...

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz.h"

namespace {

bool replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  if (file.fail() && !file.eof()) return false;
  // Printed first, so that an input that ends the process is the last one named.
  std::printf("%s\n", path.filename().c_str());
  std::fflush(stdout);
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  return true;
}

// Returns the number of files.
int replayAll(const std::filesystem::path& folder) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (replay(entry.path())) ++count;
  }
  return count;
}

}  // namespace

int main(int argc, char* argv[]) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path = argv[i];
    count += std::filesystem::is_directory(path) ? replayAll(path) : static_cast<int>(replay(path));
  }
  std::printf("%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
