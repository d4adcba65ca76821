// One try to run a task.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "tool/record/ends.h"

namespace runlet_tool {

// Points in time are seconds since 1970 in UTC, with a fraction.
struct TaskTry {
  TaskEnd end;
  pid_t process = 0;  // 0 if there was none, or its program was not allowed to run
  double beginTime = 0;
  double endTime = 0;
  double wall = 0;  // seconds, by a clock that is never set
  double cpu = 0;   // seconds, of the task and the children it has waited for
  // Bytes, of the largest of these processes, but at least those of the starter process.
  std::int64_t peakMemory = 0;
  bool isLogRemoved = false;
  bool isDiskFull = false;  // that of its log, which may therefore be incomplete
};

}  // namespace runlet_tool
