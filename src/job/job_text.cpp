#include "job/job_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace runlet {
namespace {

// What the XML library says of a file that it cannot open; the server knows this text.
constexpr char cannotOpen[] = "Failed to open file";

// The XML library moves by the length that the first byte of a UTF-8 character announces, at most
// 4. Where the text ends in the middle of such a character, that leads up to 3 bytes past the NUL
// behind it.
constexpr std::size_t paddingLength = 3;

// The number of bytes to read. What is no regular file has none, and so is an empty document to
// the library, which looks for the length by moving to the end.
std::size_t sizeOf(const struct stat& status) {
  return S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
}

// Reads up to `size` bytes; a file that has become shorter yields what is left of it.
bool readUpTo(int descriptor, std::size_t size, std::string* text, std::string* reason) {
  text->resize(size);
  std::size_t length = 0;
  while (length < size) {
    const ssize_t count = read(descriptor, text->data() + length, size - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      *reason = std::strerror(errno);
      return false;
    }
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  text->resize(length);
  return true;
}

bool readOpenFile(int descriptor, std::string* text, std::string* reason) {
  struct stat status {};
  int error = fstat(descriptor, &status) == 0 ? 0 : errno;
  // A directory has a length that means nothing, and the library would ask memory for it.
  if (error == 0 && S_ISDIR(status.st_mode)) error = EISDIR;
  if (error == 0 && sizeOf(status) > maxJobFileSize) error = EFBIG;
  if (error == 0) return readUpTo(descriptor, sizeOf(status), text, reason);
  *reason = std::strerror(error);
  return false;
}

// A CR, with the LF that may follow it, becomes one LF.
void normalizeLineEnds(std::string* text) {
  std::size_t from = text->find('\r');
  if (from == std::string::npos) return;
  std::size_t to = from;
  while (from < text->size()) {
    const char c = (*text)[from++];
    (*text)[to++] = c == '\r' ? '\n' : c;
    if (c == '\r' && from < text->size() && (*text)[from] == '\n') ++from;
  }
  text->resize(to);
}

// A text as a stream reads it.
struct TextSource {
  const std::string* text;
  std::size_t position;
};

ssize_t readSource(void* cookie, char* buffer, std::size_t size) {
  auto* source = static_cast<TextSource*>(cookie);
  const std::size_t count = source->text->copy(buffer, size, source->position);
  source->position += count;
  return static_cast<ssize_t>(count);
}

int seekSource(void* cookie, off64_t* offset, int whence) {
  auto* source = static_cast<TextSource*>(cookie);
  const std::size_t length = source->text->size();
  const std::size_t bases[] = {0, source->position, length};
  const off64_t target = static_cast<off64_t>(bases[whence]) + *offset;
  if (target < 0 || target > static_cast<off64_t>(length)) return -1;
  source->position = static_cast<std::size_t>(target);
  *offset = target;
  return 0;
}

int closeSource(void* cookie) {
  delete static_cast<TextSource*>(cookie);
  return 0;
}

// Whether neither a file nor a folder stands there.
bool isSpecial(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

bool readJobText(const char* path, std::string* text, std::string* reason) {
  if (isSpecial(path)) {
    text->clear();
    prepareText(text);
    return true;
  }
  // Something else may stand there by now, which must not be waited for either.
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor == -1) {
    *reason = cannotOpen;
    return false;
  }
  const bool ok = readOpenFile(descriptor, text, reason);
  close(descriptor);
  if (ok) prepareText(text);
  return ok;
}

void prepareText(std::string* text) {
  text->resize(std::strlen(text->c_str()));
  normalizeLineEnds(text);
  text->append(paddingLength, '\0');
}

std::FILE* openText(const std::string& text) {
  auto* source = new TextSource{&text, 0};
  std::FILE* stream = fopencookie(source, "r", {readSource, nullptr, seekSource, closeSource});
  if (stream == nullptr) delete source;
  return stream;
}

}  // namespace runlet
