#include "tool/job/danger.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstring>

#include "job/int32.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

constexpr char safeInShell[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@%+=:,./-";

// Whether the text is a plain 0: zeros, optionally with a sign before or white space after them.
bool isPlainZero(std::string_view text) {
  text = text.substr(0, text.find_last_not_of(whiteSpace) + 1);
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  return !text.empty() && text.find_first_not_of('0') == std::string_view::npos;
}

}  // namespace

bool hasContent(const TiXmlNode* node) {
  for (; node != nullptr; node = node->NextSibling()) {
    if (node->ToText() != nullptr || node->ToElement() != nullptr) return true;
  }
  return false;
}

bool isCutOff(const TiXmlText& text) {
  return hasContent(text.NextSibling());
}

// Text after a NUL and a second element of the same name do not count for the number, but the
// author may think they do.
bool isHiddenRoot(const TiXmlText& text) {
  const TiXmlNode& element = *text.Parent();
  const bool isPlain = !text.CDATA() && !isCutOff(text) && isPlainZero(text.ValueStr()) &&
                       element.NextSiblingElement(element.ValueStr()) == nullptr;
  return runlet::decimalInt32(text.Value()) == 0 && !isPlain;
}

const char* hiddenRootIn(const TiXmlDocument& document) {
  const TiXmlNode* cmdData = document.FirstChild()->FirstChild("cmdData");
  for (const char* name : {"uid", "gid"}) {
    const TiXmlElement* element = cmdData->FirstChildElement(name);
    // It has text, since the job has been loaded.
    if (element != nullptr && isHiddenRoot(*element->FirstChild()->ToText())) return name;
  }
  return nullptr;
}

bool isSafeInShell(std::string_view path) {
  // Bytes beyond ASCII are letters to a shell.
  const auto isSafe = [](char c) {
    return static_cast<unsigned char>(c) >= 0x80 ||
           (c != '\0' && std::strchr(safeInShell, c) != nullptr);
  };
  return !path.starts_with('-') && std::all_of(path.begin(), path.end(), isSafe);
}

}  // namespace runlet_tool
