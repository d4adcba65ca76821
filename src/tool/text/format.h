// Formatting texts, counts and task numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace runlet_tool {

// Formats like printf, without newlines at the end.
std::string withoutLineEnd(const char* format, ...) __attribute__((format(printf, 1, 2)));

// "1 task", "2 tasks".
std::string quantity(std::size_t count, const std::string& what);

// A set of task numbers, stored as ranges. Numbers are added in ascending order.
class TaskNumbers {
 public:
  TaskNumbers() = default;
  explicit TaskNumbers(const std::vector<std::int32_t>& ascending) {
    for (const std::int32_t number : ascending) add(number);
  }

  void add(std::int32_t number);

  std::int32_t count() const {
    return count_;
  }

  // As "3-5, 9", or with another separator.
  std::string text(const char* separator = ", ") const;

 private:
  struct Range {
    std::int32_t first;
    std::int32_t last;
  };
  std::vector<Range> ranges_;
  std::int32_t count_ = 0;
};

}  // namespace runlet_tool
