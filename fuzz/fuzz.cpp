#include "fuzz.h"

#include <algorithm>
#include <cstdlib>

namespace runlet_fuzz {
namespace {

// The stream `stderr` kept in memory as long as the object lives.
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

}  // namespace runlet_fuzz
