#include "job/xml_extent.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace runlet {
namespace {

// The functions below move through the text and yield where they got to. They yield null where
// the library gives the whole text up, so that nothing behind that place matters.

const char* behind(const char* found, std::size_t length) {
  return found == nullptr ? nullptr : found + length;
}

bool beginsWith(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

bool beginsWithAnyCase(const char* text, const char* prefix) {
  return strncasecmp(text, prefix, std::strlen(prefix)) == 0;
}

bool isSpace(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// To the library every byte from 127 on is a letter.
bool isNameStart(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 127 || std::isalpha(byte) != 0 || c == '_';
}

bool isNamePart(char c) {
  return isNameStart(c) || std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '-' ||
         c == '.' || c == ':';
}

// White space, and the three characters that the library takes for byte order marks anywhere.
const char* skipSpace(const char* text) {
  for (;;) {
    if (isSpace(*text)) {
      ++text;
    } else if (beginsWith(text, "\xef\xbb\xbf") || beginsWith(text, "\xef\xbf\xbe") ||
               beginsWith(text, "\xef\xbf\xbf")) {
      text += 3;
    } else {
      return text;
    }
  }
}

const char* skipName(const char* text) {
  if (!isNameStart(*text)) return nullptr;
  while (isNamePart(*text)) ++text;
  return text;
}

// The bytes of the UTF-8 character that `lead` begins, as the library counts them.
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
    return behind(std::strchr(text + 2, ';'), 1);
  }
  const auto length = static_cast<std::size_t>(utf8Length(*text));
  return text + strnlen(text, length);
}

const char* skipCharactersUpTo(const char* text, char end) {
  while (text != nullptr && *text != '\0' && *text != end) text = skipCharacter(text);
  return text == nullptr || *text == '\0' ? nullptr : text;
}

const char* skipUnquotedValue(const char* text) {
  while (*text != '\0' && !isSpace(*text) && *text != '/' && *text != '>') {
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
  if (*text == '\'' || *text == '"') return behind(skipCharactersUpTo(text + 1, *text), 1);
  return skipUnquotedValue(text);
}

// `text` stands at "<?xml". Anything may stand among its three attributes.
const char* skipDeclaration(const char* text) {
  text += std::strlen("<?xml");
  while (text != nullptr && *text != '\0' && *text != '>') {
    text = skipSpace(text);
    if (beginsWithAnyCase(text, "version") || beginsWithAnyCase(text, "encoding") ||
        beginsWithAnyCase(text, "standalone")) {
      text = skipAttribute(text);
    } else {
      while (*text != '\0' && *text != '>' && !isSpace(*text)) ++text;
    }
  }
  return text == nullptr || *text == '\0' ? nullptr : text + 1;
}

struct StartTag {
  const char* end;
  bool open;  // the element has content, that is, it does not end at once by "/>"
  std::size_t attributes;
};

// `text` stands at the "<".
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

// Markup that is no element, `text` standing at its "<".
const char* skipOtherMarkup(const char* text) {
  if (beginsWithAnyCase(text, "<?xml")) return skipDeclaration(text);
  if (beginsWith(text, "<!--")) return behind(std::strstr(text + 4, "-->"), 3);
  if (beginsWith(text, "<![CDATA[")) return behind(std::strstr(text + 9, "]]>"), 3);
  return behind(std::strchr(text, '>'), 1);
}

bool isWithin(const XmlExtent& extent, const XmlExtent& limits) {
  return extent.depth <= limits.depth && extent.attributes <= limits.attributes &&
         extent.steps <= limits.steps;
}

}  // namespace

XmlExtent measureXml(const char* text, const XmlExtent& enough) {
  XmlExtent extent = {0, 0, 0};
  std::size_t depth = 0;
  while (text != nullptr && isWithin(extent, enough)) {
    // Outside the root only markup is read: the library stops at anything else.
    text = depth == 0 ? skipSpace(text) : skipCharactersUpTo(text, '<');
    if (text == nullptr || *text != '<') break;
    extent.steps += depth;
    if (depth > 0 && text[1] == '/') {
      text = behind(std::strchr(text, '>'), 1);
      --depth;
    } else if (isNameStart(text[1])) {
      const StartTag tag = readStartTag(text);
      // A level as well if the element ends at once, or the library gives up in its tag.
      extent.depth = std::max(extent.depth, depth + 1);
      extent.attributes = std::max(extent.attributes, tag.attributes);
      text = tag.end;
      if (tag.open) ++depth;
    } else {
      text = skipOtherMarkup(text);
    }
  }
  return extent;
}

}  // namespace runlet
