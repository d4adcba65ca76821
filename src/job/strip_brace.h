// Removing the braces around a text of the job file.
#pragma once

#include <cstddef>
#include <string>

namespace runlet {

// Both forms extract the text between the first "{" and the last "}" of `source`; text outside is
// dropped, braces inside are kept. They return false and leave the destination unchanged if a brace
// is missing or nothing is between them.

// Any length. If the last "}" is before the first "{", raises std::length_error, which nothing in
// the adapter catches: the process ends abnormally.
bool stripBrace(const char* source, std::string* destination);

// Longest text that the buffer form returns, in bytes.
inline constexpr std::size_t maxStrippedLength = 255;

// Up to `maxStrippedLength` bytes; a longer text and reversed braces are refused. `destination`
// has room for `maxStrippedLength` + 1 bytes and is NUL-terminated on success.
bool stripBrace(const char* source, char* destination);

}  // namespace runlet
