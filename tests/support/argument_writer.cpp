// A task that appends its argument vector to the file that RUNLET_RECORD names: the number of
// arguments, then the arguments, each followed by a NUL. It is as small as possible, since it is
// started thousands of times.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// A command line has up to 3999 bytes, and each of its words at least one.
char record[16384];

}  // namespace

int main(int argc, char* argv[]) {
  auto length = static_cast<std::size_t>(std::snprintf(record, sizeof record, "%d", argc)) + 1;
  for (int i = 0; i < argc; ++i) {
    const std::size_t size = std::strlen(argv[i]) + 1;
    if (size > sizeof record - length) return 96;
    std::memcpy(record + length, argv[i], size);
    length += size;
  }
  const char* path = std::getenv("RUNLET_RECORD");
  const int file = path == nullptr ? -1 : open(path, O_WRONLY | O_APPEND);
  if (file == -1) return 97;
  // In one call, so that the record is written atomically.
  return write(file, record, length) == static_cast<ssize_t>(length) ? 0 : 98;
}
