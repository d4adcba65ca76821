#include "xml/guard.h"

#include <strings.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "xml/limits.h"

namespace runlet {
namespace {

// The functions below advance through the text and return the new position. They return null where
// the library gives up on the whole text, so that the rest does not matter.

const char* after(const char* found, std::size_t length) {
  return found == nullptr ? nullptr : found + length;
}

// Right after the next `c`. Tags are too short for a library call to pay off.
const char* afterNext(const char* text, char c) {
  while (*text != '\0' && *text != c) ++text;
  return *text == '\0' ? nullptr : text + 1;
}

bool beginsWith(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

bool beginsWithAnyCase(const char* text, const char* prefix) {
  return strncasecmp(text, prefix, std::strlen(prefix)) == 0;
}

// Classes of bytes, for the loops over every byte of a job file.
enum ByteKind : unsigned char {
  space = 1,
  nameStart = 2,
  namePart = 4,
  special = 8,  // in text and in quoted values: may end them, or is more than one byte
};

// To the library every byte from 127 on is a letter.
consteval unsigned char kindOf(unsigned byte) {
  const bool isLetter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
  const bool startsName = isLetter || byte == '_' || byte >= 127;
  const bool isInName =
      startsName || (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == ':';
  const bool isSpace = byte == ' ' || (byte >= '\t' && byte <= '\r');
  const bool isSpecial = byte == '\0' || byte == '<' || byte == '\'' || byte == '"' ||
                         byte == '&' || (byte >= 0xc2 && byte <= 0xf4);
  return static_cast<unsigned char>((isSpace ? space : 0) | (startsName ? nameStart : 0) |
                                    (isInName ? namePart : 0) | (isSpecial ? special : 0));
}

consteval std::array<unsigned char, 256> kindsOfBytes() {
  std::array<unsigned char, 256> table{};
  for (unsigned byte = 0; byte < table.size(); ++byte) table[byte] = kindOf(byte);
  return table;
}

constexpr std::array<unsigned char, 256> kinds = kindsOfBytes();

bool is(char c, ByteKind kind) {
  return (kinds[static_cast<unsigned char>(c)] & kind) != 0;
}

// One of the three characters that the library takes for byte order marks anywhere.
bool isMark(const char* text) {
  return *text == '\xef' && (beginsWith(text, "\xef\xbb\xbf") || beginsWith(text, "\xef\xbf\xbe") ||
                             beginsWith(text, "\xef\xbf\xbf"));
}

// Skips white space and byte order marks.
const char* skipSpace(const char* text) {
  for (;;) {
    if (is(*text, space)) {
      ++text;
    } else if (isMark(text)) {
      text += 3;
    } else {
      return text;
    }
  }
}

const char* skipName(const char* text) {
  if (!is(*text, nameStart)) return nullptr;
  while (is(*text, namePart)) ++text;
  return text;
}

// The length of the UTF-8 character that `lead` begins, as the library counts it.
int utf8Length(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  if (byte >= 0xc2 && byte <= 0xdf) return 2;
  if (byte >= 0xe0 && byte <= 0xef) return 3;
  if (byte >= 0xf0 && byte <= 0xf4) return 4;
  return 1;
}

// One character of text or of a quoted value.
const char* skipCharacter(const char* text) {
  if (text[0] == '&' && text[1] == '#' && text[2] != '\0') {
    return afterNext(text + 2, ';');
  }
  const auto length = static_cast<std::size_t>(utf8Length(*text));
  return text + strnlen(text, length);
}

// `end` is one of the special bytes.
const char* skipCharactersUpTo(const char* text, char end) {
  while (text != nullptr) {
    while (!is(*text, special)) ++text;
    if (*text == end) return text;
    text = *text == '\0' ? nullptr : skipCharacter(text);
  }
  return nullptr;
}

const char* skipUnquotedValue(const char* text) {
  while (*text != '\0' && !is(*text, space) && *text != '/' && *text != '>') {
    if (*text == '\'' || *text == '"') return nullptr;
    ++text;
  }
  return text;
}

const char* skipAttribute(const char* text) {
  text = skipName(text);
  if (text == nullptr) return nullptr;
  text = skipSpace(text);
  if (*text != '=') return nullptr;
  text = skipSpace(text + 1);
  if (*text == '\'' || *text == '"') return after(skipCharactersUpTo(text + 1, *text), 1);
  return skipUnquotedValue(text);
}

// `text` is at "<?xml". Anything may be between its three attributes.
const char* skipDeclaration(const char* text) {
  text += std::strlen("<?xml");
  while (text != nullptr && *text != '\0' && *text != '>') {
    text = skipSpace(text);
    if (beginsWithAnyCase(text, "version") || beginsWithAnyCase(text, "encoding") ||
        beginsWithAnyCase(text, "standalone")) {
      text = skipAttribute(text);
    } else {
      while (*text != '\0' && *text != '>' && !is(*text, space)) ++text;
    }
  }
  return text == nullptr || *text == '\0' ? nullptr : text + 1;
}

struct StartTag {
  const char* end;
  bool open;  // the element has content: its tag does not end with "/>"
  std::size_t attributes;
};

// `text` is at the "<".
StartTag readStartTag(const char* text) {
  std::size_t attributes = 0;
  text = skipName(skipSpace(text + 1));
  while (text != nullptr && *text != '\0') {
    text = skipSpace(text);
    if (*text == '>') return {text + 1, true, attributes};
    if (*text == '/') return {text[1] == '>' ? text + 2 : nullptr, false, attributes};
    text = skipAttribute(text);
    ++attributes;
  }
  return {nullptr, false, attributes};
}

// Markup that is not an element; `text` is at its "<".
const char* skipOtherMarkup(const char* text) {
  if (beginsWithAnyCase(text, "<?xml")) return skipDeclaration(text);
  if (beginsWith(text, "<!--")) return after(std::strstr(text + 4, "-->"), 3);
  if (beginsWith(text, "<![CDATA[")) return after(std::strstr(text + 9, "]]>"), 3);
  return afterNext(text, '>');
}

struct Limit {
  std::size_t XmlCost::*figure;
  const char* refusal;
};

constexpr Limit limits[] = {
    {&XmlCost::depth, "Elements nested too deep."},
    {&XmlCost::attributes, "Too many attributes."},
    {&XmlCost::comparisons, "Too many attributes."},
    {&XmlCost::levels, "Too many nested elements."},
};

// Null if no figure exceeds that of `most`.
const Limit* limitBroken(const XmlCost& cost, const XmlCost& most) {
  const auto isBroken = [&](const Limit& limit) { return cost.*limit.figure > most.*limit.figure; };
  const Limit* found = std::find_if(std::begin(limits), std::end(limits), isBroken);
  return found == std::end(limits) ? nullptr : found;
}

void addAttributes(std::size_t count, XmlCost* cost) {
  cost->attributes = std::max(cost->attributes, count);
  cost->comparisons += count * (count - 1) / 2;
}

std::size_t maxDepth() {
  rlimit limit{};
  const bool isKnown = getrlimit(RLIMIT_STACK, &limit) == 0;
  const std::size_t stack = std::min<rlim_t>(isKnown ? limit.rlim_cur : 0, maxStack);
  const std::size_t taken = std::max(stack / 4, minArgumentSpace) + stackReserve;
  return std::max(stack > taken ? (stack - taken) / stackPerLevel : 0, minDepth);
}

}  // namespace

XmlCost costOf(const char* text, const XmlCost& most) {
  XmlCost cost = {0, 0, 0, 0};
  std::size_t depth = 0;
  while (text != nullptr && limitBroken(cost, most) == nullptr) {
    text = skipSpace(text);
    if (depth > 0 && *text != '<' && *text != '\0') {
      cost.levels += depth;  // a text is a node, too
      text = skipCharactersUpTo(text, '<');
    }
    // Outside the root only markup is read; the library stops at anything else.
    if (text == nullptr || *text != '<') break;
    if (depth > 0 && text[1] == '/') {
      text = afterNext(text, '>');
      --depth;
      continue;
    }
    cost.levels += depth;
    if (is(text[1], nameStart)) {
      const StartTag tag = readStartTag(text);
      // Counts as a level even if the element has no content, or the library gives up in its tag.
      cost.depth = std::max(cost.depth, depth + 1);
      addAttributes(tag.attributes, &cost);
      text = tag.end;
      if (tag.open) ++depth;
    } else {
      text = skipOtherMarkup(text);
    }
  }
  return cost;
}

XmlCost xmlLimits() {
  return {maxDepth(), maxAttributes, maxComparisons, maxLevels};
}

const char* refusalOf(const char* text) {
  const XmlCost most = xmlLimits();
  const Limit* broken = limitBroken(costOf(text, most), most);
  return broken == nullptr ? nullptr : broken->refusal;
}

}  // namespace runlet
