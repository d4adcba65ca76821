// Texts from the adapter's own formats.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace runlet_tool {

// What printf makes of it, without the line end that the format may have.
template <typename... Values>
std::string withoutLineEnd(const char* format, Values... values) {
  const int length = std::snprintf(nullptr, 0, format, values...);
  std::string text(static_cast<std::size_t>(length < 0 ? 0 : length), '\0');
  std::snprintf(text.data(), text.size() + 1, format, values...);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

// "1 task", "2 tasks".
inline std::string quantity(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace runlet_tool
