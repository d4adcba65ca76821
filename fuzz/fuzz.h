// Shared by the fuzz targets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// Runs one input of the fuzzer: passed to the target unchanged (plain.cpp), or as the large input
// that it describes (large.cpp).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace runlet_fuzz {

// Runs one input. Each target defines it.
void tryInput(const std::uint8_t* data, std::size_t size);

// Ends the process, with `what` on standard error, if `held` is false.
void require(bool held, const char* what);

// Returns what `action` writes to the stream `stderr`. Exceptions pass through.
std::string standardErrorOf(const std::function<void()>& action);

// Splits the input at NULs into exactly `count` texts, empty if the input has fewer; the rest of
// the input is ignored.
std::vector<std::string> texts(const std::uint8_t* data, std::size_t size, std::size_t count);

// A file in memory.
class MemoryFile {
 public:
  explicit MemoryFile(const char* name);

  // Replaces its content by the `size` bytes at `data`.
  void write(const std::uint8_t* data, std::size_t size) const;

  std::string path() const;

 private:
  int descriptor_;
};

}  // namespace runlet_fuzz
