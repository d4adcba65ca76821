// The tasks that a request asks for, and how long each of them may take.
#pragma once

#include <algorithm>
#include <cstdint>

#include "adapter/context.h"
#include "job/int32.h"

namespace runlet {

// 0-based positions in `taskList`, from `first` up to but excluding `end`, which may be beyond the
// end of the list. Empty if `end` is not above `first`.
struct TaskRange {
  std::int32_t first;
  std::int32_t end;
};

// The server counts tasks from 1. `-s 0`, which is also the default, therefore begins one before
// the first task and uses up one of the count: the server relies on a request without a range
// running nothing. A range at the limits of 32 bits wraps around.
inline TaskRange requestedTasks(const AdapterContext& context) {
  const std::int32_t first = wrappingAdd(context.firstTask, -1);
  return {std::max(first, 0), wrappingAdd(first, context.taskCount)};
}

inline bool isTask(const AdapterContext& context, std::int32_t index) {
  return index < static_cast<std::int32_t>(context.taskList.size());
}

inline constexpr std::int32_t millisecondsPerMinute = 60000;

// Longest limit, in minutes, that does not wrap around.
inline constexpr std::int32_t longestTimeout = INT32_MAX / millisecondsPerMinute;

// The limit in milliseconds for a `taskTimeout` in minutes. Beyond `longestTimeout`, in either
// direction, the product wraps around; the server compares with the wrapped value.
constexpr std::int32_t timeLimit(std::int32_t taskTimeout) {
  return wrappingMultiply(taskTimeout, millisecondsPerMinute);
}

}  // namespace runlet
