#include "tool/text/task_numbers.h"

namespace runlet_tool {

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
