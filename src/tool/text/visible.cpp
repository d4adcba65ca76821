#include "tool/text/visible.h"

#include <algorithm>
#include <iterator>

#include "tool/text/format.h"
#include "tool/text/utf8.h"

namespace runlet_tool {
namespace {

struct CharacterRange {
  unsigned first;
  unsigned last;
};

constexpr CharacterRange controlCharacters[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},     {0x61c, 0x61c},
    {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069},
};

// The number of a character of `length` bytes, which are UTF-8.
unsigned codePoint(std::string_view text, std::size_t length) {
  const auto first = static_cast<unsigned char>(text[0]);
  unsigned code = length == 1 ? first : first & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    code = code << 6U | (static_cast<unsigned char>(text[i]) & 0x3fU);
  }
  return code;
}

bool isControl(unsigned code) {
  return std::any_of(
      std::begin(controlCharacters), std::end(controlCharacters),
      [=](const CharacterRange& range) { return range.first <= code && code <= range.last; });
}

// Whether `text` goes on with so many hexadecimal digits, in upper or lower case.
bool hasDigits(std::string_view text, std::size_t count) {
  constexpr std::string_view digits = "0123456789abcdefABCDEF";
  return text.size() >= count &&
         text.substr(0, count).find_first_not_of(digits) == std::string_view::npos;
}

// Whether what follows a backslash makes it read as an escape.
bool continuesEscape(std::string_view text) {
  if (text.empty()) return false;
  const std::string_view rest = text.substr(1);
  switch (text.front()) {
    case 't':
    case 'n':
      return true;
    case 'x':
      return hasDigits(rest, 2);
    case 'u':
      return hasDigits(rest, 4);
    default:
      return false;
  }
}

std::string byteEscape(char c) {
  if (c == '\t') return "\\t";
  if (c == '\n') return "\\n";
  return withoutLineEnd("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
}

// Printable ASCII, which most texts are made of. A backslash needs a look at what follows it.
bool isPlain(char c) {
  return c >= ' ' && c <= '~' && c != '\\';
}

// Appends the character, or the byte that is none, at the start of `text`. Yields its length.
std::size_t appendVisible(std::string_view text, std::string* out) {
  const std::size_t length = utf8CharacterLength(text);
  const bool isSpecial = text.front() == '\\' && continuesEscape(text.substr(1));
  if (length == 0 || isSpecial || (length == 1 && isControlCharacter(text))) {
    *out += byteEscape(text.front());
    return 1;
  }
  if (isControlCharacter(text)) {
    *out += withoutLineEnd("\\u%04x", codePoint(text, length));
  } else {
    out->append(text.substr(0, length));
  }
  return length;
}

std::string escaped(std::string_view text, bool keepsLineEnds) {
  std::string out;
  while (!text.empty()) {
    const char c = text.front();
    std::size_t length = 1;
    if (isPlain(c) || (keepsLineEnds && c == '\n')) {
      out += c;
    } else {
      length = appendVisible(text, &out);
    }
    text.remove_prefix(length);
  }
  return out;
}

}  // namespace

bool isControlCharacter(std::string_view text) {
  const std::size_t length = utf8CharacterLength(text);
  return length > 0 && isControl(codePoint(text, length));
}

std::string visible(std::string_view text) {
  return escaped(text, false);
}

std::string visibleLines(std::string_view text) {
  return escaped(text, true);
}

}  // namespace runlet_tool
