#include "fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace runlet_fuzz {
namespace {

// Redirects the stream `stderr` to memory during its lifetime.
class CapturedStandardError {
 public:
  CapturedStandardError() : stream_(open_memstream(&text_, &length_)) {
    require(stream_ != nullptr, "a stream in memory");
    std::swap(stderr, stream_);
  }

  ~CapturedStandardError() {
    std::swap(stderr, stream_);
    std::fclose(stream_);
    std::free(text_);
  }

  CapturedStandardError(const CapturedStandardError&) = delete;
  CapturedStandardError& operator=(const CapturedStandardError&) = delete;

  std::string text() const {
    std::fflush(stderr);
    return std::string(text_, length_);
  }

 private:
  char* text_ = nullptr;
  std::size_t length_ = 0;
  std::FILE* stream_;
};

}  // namespace

void require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "Not so: %s\n", what);
  std::abort();
}

std::string standardErrorOf(const std::function<void()>& action) {
  const CapturedStandardError captured;
  action();
  return captured.text();
}

std::vector<std::string> texts(const std::uint8_t* data, std::size_t size, std::size_t count) {
  std::vector<std::string> parts;
  const std::uint8_t* const end = data + size;
  while (parts.size() < count) {
    const std::uint8_t* const stop = std::find(data, end, std::uint8_t{0});
    parts.emplace_back(data, stop);
    data = stop == end ? end : stop + 1;
  }
  return parts;
}

MemoryFile::MemoryFile(const char* name) : descriptor_(memfd_create(name, MFD_CLOEXEC)) {
  require(descriptor_ != -1, "a file in memory");
}

void MemoryFile::write(const std::uint8_t* data, std::size_t size) const {
  require(ftruncate(descriptor_, 0) == 0, "an empty file");
  require(pwrite(descriptor_, data, size, 0) == static_cast<ssize_t>(size), "a whole file");
}

std::string MemoryFile::path() const {
  return "/proc/self/fd/" + std::to_string(descriptor_);
}

}  // namespace runlet_fuzz
