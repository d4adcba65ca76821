// Bytes and characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace runlet_tool {

// How many bytes the UTF-8 character at the start of `text` has; 0 when there is none, because the
// text is empty or because what it begins with is not UTF-8.
std::size_t utf8CharacterLength(std::string_view text);

bool isUtf8(std::string_view text);

// `text` with a character for every byte, U+0000 to U+00FF, in UTF-8.
std::string bytesAsCharacters(std::string_view text);

}  // namespace runlet_tool
