// Texts of others, as they are shown to people.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

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

}  // namespace runlet_tool
