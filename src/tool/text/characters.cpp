#include "tool/text/characters.h"

#include <algorithm>
#include <iterator>

#include "tool/text/format.h"

namespace runlet_tool {
namespace {

// One form of UTF-8 sequence: the range of its first byte, its length, and the range of its second
// byte, which excludes surrogates, overlong forms and values above U+10FFFF.
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

struct CharacterRange {
  unsigned first;
  unsigned last;
};

constexpr CharacterRange controlCharacters[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},     {0x61c, 0x61c},
    {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069},
};

// The code point of a valid character of `length` bytes.
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

// Whether `text` begins with `count` hexadecimal digits, in upper or lower case.
bool hasDigits(std::string_view text, std::size_t count) {
  constexpr std::string_view digits = "0123456789abcdefABCDEF";
  return text.size() >= count &&
         text.substr(0, count).find_first_not_of(digits) == std::string_view::npos;
}

// Whether `text`, which follows a backslash, makes it look like an escape.
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
  return visibleBytes({&c, 1});
}

// Printable ASCII, the fast path. A backslash depends on what follows it.
bool isPlain(char c) {
  return c >= ' ' && c <= '~' && c != '\\';
}

// Appends the character, or invalid byte, at the start of `text`. Returns its length.
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

constexpr std::size_t longestCharacter = 4;  // bytes of UTF-8

bool isPrintable(std::string_view character) {
  return character == "\n" || character == "\t" || !isControlCharacter(character);
}

// Whether `text`, which is not a valid character, may become one with more bytes.
bool mayBecomeCharacter(std::string_view text) {
  if (text.size() >= longestCharacter) return false;
  constexpr const char* rests[] = {"\x80", "\x80\x80", "\xa0\x80", "\x90\x80\x80", "\x80\x80\x80"};
  return std::any_of(std::begin(rests), std::end(rests), [=](const char* rest) {
    return utf8CharacterLength(std::string(text) + rest) != 0;
  });
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

bool charactersAsBytes(std::string_view text, std::string* bytes) {
  bytes->clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto first = static_cast<unsigned char>(text[i]);
    if (first < 0x80) {
      *bytes += text[i];
      continue;
    }
    // U+0080 to U+00FF begin with c2 or c3, and have one more byte.
    if ((first != 0xc2 && first != 0xc3) || ++i == text.size()) return false;
    const auto second = static_cast<unsigned char>(text[i]);
    if ((second & 0xc0U) != 0x80) return false;
    *bytes += static_cast<char>((first & 0x03U) << 6U | (second & 0x3fU));
  }
  return true;
}

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

std::string visiblePart(std::string_view text, std::string* rest) {
  const std::string whole = *rest + std::string(text);
  rest->clear();
  std::string result;
  for (std::string_view left = whole; !left.empty();) {
    const std::size_t length = utf8CharacterLength(left);
    if (length == 0 && mayBecomeCharacter(left)) {
      *rest = left;
      break;
    }
    const std::string_view character = left.substr(0, length == 0 ? 1 : length);
    if (length != 0 && isPrintable(character)) {
      result += character;
    } else {
      result += visibleBytes(character);
    }
    left.remove_prefix(character.size());
  }
  return result;
}

std::string visibleBytes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    text += withoutLineEnd("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  }
  return text;
}

}  // namespace runlet_tool
