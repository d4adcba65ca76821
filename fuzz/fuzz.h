// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// One input of the fuzzer, whatever its bytes: handed to the target as it is (plain.cpp), or as the
// large input that it describes (large.cpp).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace runlet_fuzz {

// Tries one input. Each target defines it.
void tryInput(const std::uint8_t* data, std::size_t size);

// Ends the process, with `what` on standard error, if `held` is false.
void require(bool held, const char* what);

// What `action` writes to the stream `stderr`. What it raises passes through.
std::string standardErrorOf(const std::function<void()>& action);

// The texts that the NULs of the input separate: always `count` of them, empty where the input has
// fewer, the last one without what is left over.
std::vector<std::string> texts(const std::uint8_t* data, std::size_t size, std::size_t count);

// A file that is in memory alone.
class MemoryFile {
 public:
  explicit MemoryFile(const char* name);

  // Makes `size` bytes at `data` the whole of it.
  void write(const std::uint8_t* data, std::size_t size) const;

  std::string path() const;

 private:
  int descriptor_;
};

}  // namespace runlet_fuzz
