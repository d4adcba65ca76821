#include "xml/document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "xml/guard.h"
#include "xml/limits.h"

namespace runlet {
namespace {

// The library's text for a file that it cannot open; the server knows this text.
constexpr char cannotOpen[] = "Failed to open file";

constexpr char becameShorter[] = "File became shorter while it was read";

// The library advances by the length that the first byte of a UTF-8 character announces, at most 4
// bytes. If the text ends within such a character, it reads up to 3 bytes past the NUL, which are
// therefore NUL as well.
constexpr std::size_t paddingLength = 3;

// The bytes of a file, with room for a NUL and the padding.
struct FileText {
  std::unique_ptr<char[]> bytes;
  std::size_t length = 0;
};

void makeRoom(std::size_t length, FileText* text) {
  text->bytes = std::make_unique_for_overwrite<char[]>(length + 1 + paddingLength);
  text->length = length;
}

// Reads `descriptor` from its beginning, as much as `text` has room for.
bool readAll(int descriptor, const FileText& text, std::string* reason) {
  for (std::size_t done = 0; done < text.length;) {
    const ssize_t count = read(descriptor, text.bytes.get() + done, text.length - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      *reason = count < 0 ? std::strerror(errno) : becameShorter;
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

// Opens the file found as `place` for reading, and closes `place`. Returns -1 if the file cannot be
// opened. Anything put at `path` meanwhile is not opened: a pipe would block, a device might have
// side effects. A lease on the file is waited for, as by any open.
int openFound(int place, const char* path) {
  const std::string found = "/proc/self/fd/" + std::to_string(place);
  const int descriptor = open(found.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  const int error = errno;
  close(place);
  if (descriptor != -1 || (error != ENOENT && error != EMFILE)) return descriptor;
  // There is no /proc, or only one descriptor is left. This open does not block, not even for a
  // lease.
  return open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
}

// Returns 0, or an error number. Anything but a regular file is read as empty.
int sizeOf(int descriptor, std::size_t* size) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  *size = S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
  return *size > maxFileSize ? EFBIG : 0;
}

bool readDescriptor(int descriptor, FileText* text, std::string* reason) {
  std::size_t size = 0;
  if (const int error = sizeOf(descriptor, &size); error != 0) {
    *reason = std::strerror(error);
    return false;
  }
  makeRoom(size, text);
  return readAll(descriptor, *text, reason);
}

// Whether it is neither a regular file nor a directory.
bool isSpecial(int place) {
  struct stat status {};
  return fstat(place, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

bool readFile(const char* path, FileText* text, std::string* reason) {
  const int place = open(path, O_PATH | O_CLOEXEC);  // finds the file without opening it
  if (place != -1 && isSpecial(place)) {
    close(place);
    makeRoom(0, text);
    return true;
  }
  const int descriptor = place == -1 ? -1 : openFound(place, path);
  if (descriptor == -1) {
    *reason = cannotOpen;
    return false;
  }
  const bool isRead = readDescriptor(descriptor, text, reason);
  close(descriptor);
  return isRead;
}

// The text as the library's own load produces it: it ends at the first NUL of the file, and every
// CR or CR LF becomes an LF. The NUL and the padding follow.
void finish(const FileText& text) {
  char* const bytes = text.bytes.get();
  bytes[text.length] = '\0';
  char* end = bytes + std::strcspn(bytes, "\r");
  for (const char* next = end; *next != '\0'; ++next) {
    if (*next != '\r') {
      *end++ = *next;
    } else if (next[1] != '\n') {
      *end++ = '\n';
    }
  }
  std::fill_n(end, 1 + paddingLength, '\0');
}

}  // namespace

bool loadXml(TiXmlDocument* document, std::string* reason) {
  FileText text;
  if (!readFile(document->Value(), &text, reason)) return false;
  finish(text);
  if (const char* refusal = refusalOf(text.bytes.get()); refusal != nullptr) {
    *reason = refusal;
    return false;
  }
  document->Parse(text.bytes.get(), nullptr, TIXML_ENCODING_UTF8);
  if (document->Error()) *reason = document->ErrorDesc();
  return !document->Error();
}

}  // namespace runlet
