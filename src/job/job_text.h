// The bytes of a job file.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace runlet {

// Longest file that is read, in bytes. The XML library takes up to 85 bytes of memory for a byte of
// the file (about 15 for a usual job file), and the adapter starts as root, where no limit of the
// file's author holds.
inline constexpr std::size_t maxJobFileSize = std::size_t{128} << 20;

// Reads the file at `path` into `*text`, prepared as below. Returns false, with the reason in
// `*reason`, when that is a directory, too large or cannot be read; what `*text` holds then does
// not matter. A device or a pipe counts as empty and is not opened: some do things as soon as they
// are, and a pipe would have to be waited for.
bool readJobText(const char* path, std::string* text, std::string* reason);

// Turns the bytes of a file into what the XML library makes of them before it parses: the text
// ends at the first NUL, and every line end is one LF. A few NULs follow.
//
// The library does the same, but leaves the rest of the bytes behind the end of the text. A byte
// there that begins a longer UTF-8 character takes it over that end, and it would parse on in
// bytes that nobody has looked at. Of a prepared text there are none.
void prepareText(std::string* text);

// A stream that reads `text`, which must outlive it. The caller closes it. Yields null when
// memory is short.
std::FILE* openText(const std::string& text);

}  // namespace runlet
