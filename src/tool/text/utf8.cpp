#include "tool/text/utf8.h"

namespace runlet_tool {
namespace {

// One kind of character: its first byte, how many follow, and the range of the second one, which
// rules out surrogates, longer forms than needed and what is beyond U+10FFFF.
struct Form {
  unsigned char first, last;  // of the first byte
  unsigned char length;
  unsigned char secondFirst, secondLast;
};

constexpr Form forms[] = {
    {0x00, 0x7f, 1, 0x00, 0x00}, {0xc2, 0xdf, 2, 0x80, 0xbf}, {0xe0, 0xe0, 3, 0xa0, 0xbf},
    {0xe1, 0xec, 3, 0x80, 0xbf}, {0xed, 0xed, 3, 0x80, 0x9f}, {0xee, 0xef, 3, 0x80, 0xbf},
    {0xf0, 0xf0, 4, 0x90, 0xbf}, {0xf1, 0xf3, 4, 0x80, 0xbf}, {0xf4, 0xf4, 4, 0x80, 0x8f},
};

bool isBetween(char c, unsigned char first, unsigned char last) {
  const auto byte = static_cast<unsigned char>(c);
  return first <= byte && byte <= last;
}

bool hasForm(std::string_view text, const Form& form) {
  if (!isBetween(text[0], form.first, form.last) || text.size() < form.length) return false;
  if (form.length > 1 && !isBetween(text[1], form.secondFirst, form.secondLast)) return false;
  for (std::size_t i = 2; i < form.length; ++i) {
    if (!isBetween(text[i], 0x80, 0xbf)) return false;
  }
  return true;
}

}  // namespace

std::size_t utf8CharacterLength(std::string_view text) {
  if (text.empty()) return 0;
  for (const Form& form : forms) {
    if (hasForm(text, form)) return form.length;
  }
  return 0;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string bytesAsCharacters(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      out += c;
    } else {
      out += static_cast<char>(0xc0U | (byte >> 6U));
      out += static_cast<char>(0x80U | (byte & 0x3fU));
    }
  }
  return out;
}

}  // namespace runlet_tool
