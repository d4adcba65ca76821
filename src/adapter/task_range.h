// The tasks that a request asks for.
#pragma once

#include <algorithm>
#include <cstdint>

#include "adapter/context.h"
#include "job/int32.h"

namespace runlet {

// 0-based positions in `taskList`, from `first` up to and without `end`, which may lie beyond the
// end of the list. No task when `end` is not above `first`.
struct TaskRange {
  std::int32_t first;
  std::int32_t end;
};

// The server counts tasks from 1. `-s 0`, also the default, therefore begins one in front of the
// first task and uses up one of the count: the server relies on a request without a range to run
// nothing. A range at the edge of the 32 bits wraps around.
inline TaskRange requestedTasks(const AdapterContext& context) {
  const std::int32_t first = wrappingAdd(context.firstTask, -1);
  return {std::max(first, 0), wrappingAdd(first, context.taskCount)};
}

inline bool isTask(const AdapterContext& context, std::int32_t index) {
  return index < static_cast<std::int32_t>(context.taskList.size());
}

}  // namespace runlet
