// Running one task.
#pragma once

#include <cstdint>

#include "adapter/context.h"

namespace runlet {

// With the command line and the run folder.
inline constexpr char callingFormat[] = "Calling '%s' from '%s'\n";

inline constexpr char fillInFailedText[] =
    "Runlet adapter: Process fill-in for arguments failed.\n";

// Runs the task at `taskIndex` (0-based position in `taskList`) and waits for its end. Returns
// true when the task was started, whatever became of it; false when it could not be set up or
// started, after a message on standard error.
//
// Writes to standard output "Calling '<command line>' from '<run folder>'\n" and, once the child
// exists, "[ServerMessage]ProcessStarted processId=<pid>\n".
//
// Leaves behind, for the tasks that follow in the same request: the current folder, the group,
// the user and the file-creation mask of the process, and `context->uid` when it was looked up.
// Nothing else of `context` is changed.
//
// Ends the process by an uncaught std::out_of_range when `appPath` is given and the expanded
// line holds no space, and where fillInArguments does.
bool launchTask(AdapterContext* context, std::int32_t taskIndex);

}  // namespace runlet
