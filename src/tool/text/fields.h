// Texts of other programs, taken apart.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

namespace runlet_tool {

// Yields what comes before the first `separator` of `*text`, and removes it and that separator from
// there; the whole text where there is no separator.
std::string_view takeUntil(char separator, std::string_view* text);

// The parts between the separators. A separator at the end is followed by no part.
std::vector<std::string_view> split(char separator, std::string_view text);

// Whether the text is decimal digits and nothing else, and at least one.
bool isNumber(std::string_view text);

// Nothing where it is not a number, or too large for a `Number`.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number = 0;
  const bool isFit =
      isNumber(text) &&
      std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
  return isFit ? std::optional(number) : std::nullopt;
}

}  // namespace runlet_tool
