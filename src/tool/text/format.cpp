#include "tool/text/format.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>

namespace runlet_tool {
// A C variadic function and not a template, so that the compiler checks the arguments.
std::string withoutLineEnd(const char* format, ...) {  // NOLINT(cert-dcl50-cpp)
  std::va_list values;
  va_start(values, format);
  const int length = std::vsnprintf(nullptr, 0, format, values);
  va_end(values);
  std::string text(static_cast<std::size_t>(length < 0 ? 0 : length), '\0');
  va_start(values, format);
  std::vsnprintf(text.data(), text.size() + 1, format, values);
  va_end(values);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string quantity(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string durationText(double seconds) {
  if (seconds < 59.95) return withoutLineEnd("%.1f s", seconds);
  const auto whole = static_cast<long long>(std::min(seconds + 0.5, 1e15));
  constexpr struct {
    long long limit;  // for times below that
    long long large;
    const char* largeName;
    long long small;
    const char* smallName;
  } rows[] = {{3600, 60, "min", 1, "s"}, {86400, 3600, "h", 60, "min"}, {0, 86400, "d", 3600, "h"}};
  const auto row = std::find_if(std::begin(rows), std::end(rows) - 1,
                                [=](const auto& candidate) { return whole < candidate.limit; });
  return withoutLineEnd("%lld %s %lld %s", whole / row->large, row->largeName,
                        whole % row->large / row->small, row->smallName);
}

void TaskNumbers::add(std::int32_t number) {
  if (!ranges_.empty() && ranges_.back().last == number) return;
  ++count_;
  if (!ranges_.empty() && ranges_.back().last == number - 1) {
    ranges_.back().last = number;
  } else {
    ranges_.push_back({number, number});
  }
}

std::string TaskNumbers::text(const char* separator) const {
  std::string text;
  for (const Range& range : ranges_) {
    if (!text.empty()) text += separator;
    text += std::to_string(range.first);
    if (range.last != range.first) text.append("-").append(std::to_string(range.last));
  }
  return text;
}

}  // namespace runlet_tool
