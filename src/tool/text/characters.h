// UTF-8 characters, and escaping untrusted text for display.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace runlet_tool {

// The number of bytes of the UTF-8 character at the start of `text`; 0 if the text is empty or does
// not begin with valid UTF-8.
std::size_t utf8CharacterLength(std::string_view text);

bool isUtf8(std::string_view text);

// Converts every byte of `text` to a character, U+0000 to U+00FF, in UTF-8.
std::string bytesAsCharacters(std::string_view text);

// The reverse. False, with unspecified `*bytes`, if `text` has other characters.
bool charactersAsBytes(std::string_view text, std::string* bytes);

// Whether the UTF-8 character at the start of `text` is one that a terminal interprets instead of
// displaying: a control character (U+0000 to U+001F, U+007F to U+009F), a bidirectional control, or
// a line or paragraph separator. False if there is no valid character.
bool isControlCharacter(std::string_view text);

// `text` as one line that is safe to print to a terminal. TAB and newline become \t and \n; other
// control characters below U+0080 and invalid bytes become \xNN; control characters above become
// \uNNNN, with digits in lower case. A backslash that would look like the start of such an escape
// becomes \x5c, so that no two texts look alike. Everything else is unchanged.
std::string visible(std::string_view text);

// The same for a text of several lines: newlines are kept.
std::string visibleLines(std::string_view text);

// Part of a stream, made safe for a terminal: newlines and TABs are kept, the bytes of other
// control characters (see isControlCharacter) and invalid bytes become \xNN. An incomplete
// character at the end is left in `*rest`, which the next call puts before its `text`.
std::string visiblePart(std::string_view text, std::string* rest);

// Every byte as \xNN.
std::string visibleBytes(std::string_view bytes);

}  // namespace runlet_tool
