#include "tool/batch/limits.h"

#include <cstdint>

#include "tool/text/fields.h"

namespace runlet_tool {
namespace {

constexpr struct {
  char name;
  std::chrono::seconds length;
} units[] = {{'s', std::chrono::seconds(1)},
             {'m', std::chrono::minutes(1)},
             {'h', std::chrono::hours(1)},
             {'d', std::chrono::hours(24)}};

constexpr std::chrono::seconds longestTime(INT32_MAX);

constexpr std::size_t wholePercentage = 100;

}  // namespace

std::optional<std::chrono::milliseconds> parseTime(std::string_view text) {
  if (text.empty()) return {};
  const char name = text.back();
  text.remove_suffix(1);
  const std::optional<std::int32_t> number = parseNumber<std::int32_t>(text);
  for (const auto& unit : units) {
    if (unit.name != name || !number || *number == 0) continue;
    if (*number > longestTime / unit.length) continue;
    return *number * unit.length;
  }
  return {};
}

std::optional<HaltOption> parseHalt(std::string_view text) {
  const bool isBare = text.find(',') == std::string_view::npos;
  const std::string_view when = takeUntil(',', &text);
  if (when != "soon" && when != "now") return {};
  HaltOption option;
  option.isNow = when == "now";
  if (isBare) return option;
  if (takeUntil('=', &text) != "fail") return {};
  option.isPercentage = text.ends_with('%');
  if (option.isPercentage) text.remove_suffix(1);
  const std::optional<std::uint32_t> number = parseNumber<std::uint32_t>(text);
  if (!number || *number == 0 || (option.isPercentage && *number > wholePercentage)) return {};
  option.failures = *number;
  return option;
}

std::size_t failuresOf(const HaltOption& option, std::size_t count) {
  if (!option.isPercentage) return option.failures;
  return (count * option.failures + wholePercentage - 1) / wholePercentage;
}

std::string complaintAboutTime(const std::string& text) {
  if (parseTime(text)) return "";
  return text + " is not a time such as 90s, 5m, 2h or 1d";
}

std::string complaintAboutHalt(const std::string& text) {
  if (parseHalt(text)) return "";
  return text + " is neither soon nor now, alone or with ,fail=N or ,fail=N%";
}

}  // namespace runlet_tool
