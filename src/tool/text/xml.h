// Texts as an XML file holds them.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// White space to the XML library, and to strtol.
inline constexpr char whiteSpace[] = " \t\n\v\f\r";

inline constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

inline bool isWhiteSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// Why no XML file can hold `text`: a character that XML does not have, or bytes that are not
// UTF-8, and where. Empty when one can.
std::string xmlObstacle(std::string_view text);

// `text`, to which nothing stands in the way, so written that the loader of the adapter reads it
// back as it is. The first is for a text that is put in braces. The second is for one that stands
// alone in its element, and holds more than white space: white space alone is read as no text.
std::string escapeBraced(std::string_view text);
std::string escapeAlone(std::string_view text);

}  // namespace runlet_tool
