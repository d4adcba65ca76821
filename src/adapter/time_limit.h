// The time limit of a task.
#pragma once

#include <cstdint>

#include "job/int32.h"

namespace runlet {

inline constexpr std::int32_t millisecondsPerMinute = 60000;

// Longest limit, in minutes, that does not wrap around.
inline constexpr std::int32_t longestTimeout = INT32_MAX / millisecondsPerMinute;

// The limit in milliseconds for a `taskTimeout` in minutes. Above `longestTimeout` the product
// wraps around; the server compares with the wrapped value.
constexpr std::int32_t timeLimit(std::int32_t taskTimeout) {
  return wrappingMultiply(taskTimeout, millisecondsPerMinute);
}

}  // namespace runlet
