// Characters, and how texts of others are shown to people.
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

// Whether the UTF-8 character at the start of `text` is one that a terminal acts on instead of
// showing it: a control character (U+0000 to U+001F, U+007F to U+009F), a control of the direction
// of writing, or a separator of lines or paragraphs. False where there is no character.
bool isControlCharacter(std::string_view text);

// `text` in one line in which nothing can act on a terminal. TAB and line end become \t and \n;
// other control characters below U+0080, and bytes that are not UTF-8, \xNN; those beyond it
// \uNNNN, with digits in lower case. A backslash before what would read as such an escape becomes
// \x5c, so that no two texts look alike. All else stays as it is.
std::string visible(std::string_view text);

// The same for a text of several lines, whose line ends stay.
std::string visibleLines(std::string_view text);

// `text` for a terminal: line ends and TABs stay, the bytes of other control characters (see
// isControlCharacter) and of what is not UTF-8 become \xNN.
// Bytes at the end that may be the beginning of a character are left in `*rest`, which comes before
// `text` and is what the call before has left.
std::string visiblePart(std::string_view text, std::string* rest);

// Every byte as \xNN.
std::string visibleBytes(std::string_view bytes);

}  // namespace runlet_tool
