#include "tool/text/xml.h"

#include <cstddef>

#include "tool/text/characters.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

// The UTF-8 of U+FFFE and U+FFFF, which XML does not allow.
constexpr std::string_view noCharacters[] = {"\xef\xbf\xbe", "\xef\xbf\xbf"};

bool isForbidden(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

bool isWhite(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// What is wrong with the character of `length` bytes at the start of `text`.
std::string characterObstacle(std::string_view text, std::size_t length) {
  const auto byte = static_cast<unsigned>(static_cast<unsigned char>(text[0]));
  if (length == 0) return withoutLineEnd("the byte 0x%02X is not UTF-8", byte);
  if (isForbidden(text[0])) return withoutLineEnd("XML has no character U+%04X", byte);
  for (const std::string_view character : noCharacters) {
    if (!text.starts_with(character)) continue;
    return std::string("XML has no character ") + (text[2] == '\xbe' ? "U+FFFE" : "U+FFFF");
  }
  return {};
}

struct Escape {
  char c;
  const char* text;
};

constexpr Escape escapes[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'\t', "&#9;"}, {'\n', "&#10;"}, {'\r', "&#13;"},
};

void appendEscaped(char c, std::string* out) {
  for (const Escape& row : escapes) {
    if (row.c != c) continue;
    *out += row.text;
    return;
  }
  *out += c;
}

// Whether the space at `at` would be dropped or merged with adjacent white space.
bool isCondensed(std::string_view text, std::size_t at, bool alone) {
  const bool isFirst = at == 0;
  const bool isLast = at + 1 == text.size();
  if (alone && (isFirst || isLast)) return true;
  return (!isFirst && isWhite(text[at - 1])) || (!isLast && isWhite(text[at + 1]));
}

std::string escape(std::string_view text, bool alone) {
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == ' ' && isCondensed(text, at, alone)) {
      out += "&#32;";
    } else {
      appendEscaped(text[at], &out);
    }
  }
  return out;
}

}  // namespace

std::string xmlObstacle(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view rest = text.substr(at);
    const std::size_t length = utf8CharacterLength(rest);
    const std::string obstacle = characterObstacle(rest, length);
    if (!obstacle.empty()) return obstacle + ", at byte " + std::to_string(at + 1);
    at += length;
  }
  return {};
}

std::string escapeBraced(std::string_view text) {
  return escape(text, false);
}

std::string escapeAlone(std::string_view text) {
  // The XML library skips a byte order mark before text.
  if (!text.starts_with(byteOrderMark)) return escape(text, true);
  return "&#xFEFF;" + escape(text.substr(byteOrderMark.size()), true);
}

}  // namespace runlet_tool
