#include "tool/text/fields.h"

#include <algorithm>

namespace runlet_tool {

std::string_view takeUntil(char separator, std::string_view* text) {
  const std::string_view part = text->substr(0, text->find(separator));
  text->remove_prefix(std::min(part.size() + 1, text->size()));
  return part;
}

std::vector<std::string_view> split(char separator, std::string_view text) {
  std::vector<std::string_view> parts;
  while (!text.empty()) parts.push_back(takeUntil(separator, &text));
  return parts;
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::optional<NumberRange> parseRange(std::string_view text) {
  const bool isSingle = text.find('-') == std::string_view::npos;
  const std::optional first = parseNumber<std::int32_t>(takeUntil('-', &text));
  const std::optional last = isSingle ? first : parseNumber<std::int32_t>(text);
  if (!first || !last || *last < *first) return std::nullopt;
  return NumberRange{*first, *last};
}

}  // namespace runlet_tool
