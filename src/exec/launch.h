// Running one task.
#pragma once

#include <cstdint>

#include "adapter/context.h"

namespace runlet {

// Sets the task at `taskIndex` (0-based position in `taskList`) up, starts it in a child, writes
// "[ServerMessage]ProcessStarted processId=<pid>\n" to standard output, and waits for its end.
// Returns true when the task was started, whatever became of it; false when it could not be set up
// or started, after a message on standard error.
//
// What setUpTask changes stays so for the tasks that follow. What it raises ends the process.
bool launchTask(AdapterContext* context, std::int32_t taskIndex);

}  // namespace runlet
