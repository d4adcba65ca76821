// Running one task.
#pragma once

#include <cstdint>

#include "adapter/context.h"

namespace runlet {

// Sets up the task at `taskIndex` (0-based position in `taskList`), starts it in a child, writes
// "[ServerMessage]ProcessStarted processId=<pid>\n" to standard output, and waits for its end.
// Returns true if the task was started, however it ended; false, after a message on standard error,
// if it could not be set up or started.
//
// The changes by setUpTask persist for later tasks. Its exceptions end the process.
bool launchTask(AdapterContext* context, std::int32_t taskIndex);

}  // namespace runlet
