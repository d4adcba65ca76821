// The bytes of a job file.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace runlet {

// Longest file that is read, in bytes. The XML library takes up to 85 bytes of memory for a byte of
// the file (about 10 for a usual job file), and the adapter starts as root, where no limit of the
// file's author holds.
inline constexpr std::size_t maxJobFileSize = std::size_t{128} << 20;

// Opens the job file at `path` as a stream that has its bytes and then `paddingLength` times NUL;
// `*length` is how many that is together. The caller closes the stream. Yields null, with the
// reason in `*reason`, when that is a directory, too large or cannot be opened.
//
// A read that fails leaves the reason in `*reason`, which has to live as long as the stream. A file
// that becomes shorter in the meantime ends in more NULs.
//
// A device or a pipe counts as empty and is not opened: some do things as soon as they are, and a
// pipe would have to be waited for.
std::FILE* openJobText(const char* path, std::size_t* length, std::string* reason);

// The XML library moves by the length that the first byte of a UTF-8 character announces, at most
// 4 bytes. Where the text ends in the middle of such a character, that leads up to 3 bytes past the
// NUL behind it.
inline constexpr std::size_t paddingLength = 3;

// Makes the `paddingLength` bytes behind the NUL that ends `text` NUL as well. They must be part of
// what was read from such a stream.
//
// The library leaves them as they are when it has taken out the CRs, or ends the text at a NUL in
// the middle of the file. From a byte there that begins a longer character it would parse on in
// bytes that nobody has looked at.
void padText(char* text);

}  // namespace runlet
