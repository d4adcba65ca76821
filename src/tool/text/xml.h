// Escaping text for an XML file.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// What the XML library and strtol skip as white space.
inline constexpr char whiteSpace[] = " \t\n\v\f\r";

inline constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

inline bool isWhiteSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// Why `text` cannot be written to an XML file: a character that XML does not allow, or invalid
// UTF-8, and where. Empty if it can.
std::string xmlObstacle(std::string_view text);

// Escape `text`, which must have no xmlObstacle, so that the adapter's loader reads it back
// unchanged. The first is for text in braces. The second is for text that is alone in its element
// and is not only white space, which would be read as no text.
std::string escapeBraced(std::string_view text);
std::string escapeAlone(std::string_view text);

}  // namespace runlet_tool
