// Splitting text into fields.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace runlet_tool {

// Removes the text up to and including the first `separator` from `*text`, or all of it if there is
// none, and returns it without the separator.
std::string_view takeUntil(char separator, std::string_view* text);

// The parts between the separators. No empty part follows a separator at the end.
std::vector<std::string_view> split(char separator, std::string_view text);

// Whether the text consists of decimal digits, at least one.
bool isNumber(std::string_view text);

// No value if the text is not a number or is too large for `Number`.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number = 0;
  const bool isFit =
      isNumber(text) &&
      std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
  return isFit ? std::optional(number) : std::nullopt;
}

struct NumberRange {
  std::int32_t first;
  std::int32_t last;
};

// From "3" or "3-5". No value if the text is neither or `last` would be below `first`.
std::optional<NumberRange> parseRange(std::string_view text);

}  // namespace runlet_tool
