#include "job/job_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

namespace runlet {
namespace {

// What the XML library says of a file that it cannot open; the server knows this text.
constexpr char cannotOpen[] = "Failed to open file";

// Large files are read in pieces of this many bytes: few calls, and they are still in the
// processor's cache when they are copied to where the library wants them.
constexpr std::size_t pieceLength = std::size_t{16} << 10;

// A job file as its stream reads it.
struct Source {
  int descriptor;  // -1 for what counts as empty
  off64_t size;    // of the file
  off64_t position = 0;
  std::string* reason;
  std::unique_ptr<char[]> buffer;  // of the stream; null for the one that it has anyway
};

// The number of bytes to read. What is no regular file has none, and so is an empty document to
// the library, which looks for the length by moving to the end.
off64_t sizeOf(const struct stat& status) {
  return S_ISREG(status.st_mode) ? status.st_size : 0;
}

off64_t lengthOf(const Source& source) {
  return source.size + static_cast<off64_t>(paddingLength);
}

// Reads up to `size` bytes of the file. Where it has none, they are NUL.
ssize_t readFile(const Source& source, char* bytes, std::size_t size) {
  ssize_t count = 0;
  do {
    count = pread(source.descriptor, bytes, size, source.position);
  } while (count < 0 && errno == EINTR);
  if (count < 0) *source.reason = std::strerror(errno);
  if (count != 0) return count;
  std::fill_n(bytes, size, '\0');
  return static_cast<ssize_t>(size);
}

ssize_t readSource(void* cookie, char* buffer, std::size_t size) {
  auto* source = static_cast<Source*>(cookie);
  const bool isInFile = source->position < source->size;
  const off64_t left = (isInFile ? source->size : lengthOf(*source)) - source->position;
  auto count = static_cast<ssize_t>(std::min(size, static_cast<std::size_t>(left)));
  if (isInFile) {
    count = readFile(*source, buffer, static_cast<std::size_t>(count));
  } else {
    std::fill_n(buffer, count, '\0');
  }
  if (count > 0) source->position += count;
  return count;
}

int seekSource(void* cookie, off64_t* offset, int whence) {
  auto* source = static_cast<Source*>(cookie);
  const off64_t bases[] = {0, source->position, lengthOf(*source)};
  const off64_t target = bases[whence] + *offset;
  if (target < 0 || target > lengthOf(*source)) return -1;
  source->position = target;
  *offset = target;
  return 0;
}

int closeSource(void* cookie) {
  const std::unique_ptr<Source> source(static_cast<Source*>(cookie));
  if (source->descriptor != -1) close(source->descriptor);
  return 0;
}

// Takes `descriptor` over.
std::FILE* openSource(int descriptor, off64_t size, std::string* reason) {
  auto* source = new Source{.descriptor = descriptor, .size = size, .reason = reason, .buffer = {}};
  std::FILE* stream = fopencookie(source, "r", {readSource, nullptr, seekSource, closeSource});
  if (stream == nullptr) throw std::bad_alloc();  // nothing else can keep it from being opened
  if (size > BUFSIZ) {
    source->buffer = std::make_unique_for_overwrite<char[]>(pieceLength);
    std::setvbuf(stream, source->buffer.get(), _IOFBF, pieceLength);
  }
  return stream;
}

// Whether neither a file nor a folder stands there.
bool isSpecial(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

// Why the open file is not read, as an error number; else 0.
int errorOf(int descriptor, struct stat* status) {
  if (fstat(descriptor, status) != 0) return errno;
  // A directory has a length that means nothing, and the library would ask memory for it.
  if (S_ISDIR(status->st_mode)) return EISDIR;
  return sizeOf(*status) > static_cast<off64_t>(maxJobFileSize) ? EFBIG : 0;
}

}  // namespace

std::FILE* openJobText(const char* path, std::size_t* length, std::string* reason) {
  *length = paddingLength;
  if (isSpecial(path)) return openSource(-1, 0, reason);
  // Something else may stand there by now, which must not be waited for either.
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor == -1) {
    *reason = cannotOpen;
    return nullptr;
  }
  struct stat status {};
  if (const int error = errorOf(descriptor, &status); error != 0) {
    *reason = std::strerror(error);
    close(descriptor);
    return nullptr;
  }
  *length += static_cast<std::size_t>(sizeOf(status));
  return openSource(descriptor, sizeOf(status), reason);
}

void padText(char* text) {
  std::fill_n(text + std::strlen(text) + 1, paddingLength, '\0');
}

}  // namespace runlet
