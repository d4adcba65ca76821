// Texts of any bytes in JSON.
#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "tool/text/characters.h"

namespace runlet_tool {

using Json = nlohmann::ordered_json;

// The text of a value without a line break, in ASCII: other characters, some of which act on a
// terminal, are escaped. Every string in it is UTF-8.
inline std::string asciiText(const Json& value) {
  return value.dump(-1, ' ', true);
}

inline bool areUtf8(const std::vector<std::string>& texts) {
  return std::all_of(texts.begin(), texts.end(), isUtf8);
}

// Converts the strings of one object to JSON: unchanged, or, if one of them is not UTF-8, all of
// them with one character, U+0000 to U+00FF, for each byte. The object says which in its member
// "bytes".
class JsonStrings {
 public:
  explicit JsonStrings(bool inBytes) : inBytes_(inBytes) {}

  std::string operator()(std::string_view text) const {
    return inBytes_ ? bytesAsCharacters(text) : std::string(text);
  }

  Json list(const std::vector<std::string>& texts) const {
    Json all = Json::array();
    for (const std::string& text : texts) all.push_back((*this)(text));
    return all;
  }

  Json orNull(bool isThere, std::string_view text) const {
    return isThere ? Json((*this)(text)) : Json();
  }

 private:
  bool inBytes_;
};

}  // namespace runlet_tool
