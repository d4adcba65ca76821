// Carrying out the request that the farm server named.
#pragma once

#include <cstdint>

#include "adapter/context.h"

namespace runlet {

// Carries out `context->opcode`. Returns 0 for success, -1 for failure; an unknown opcode fails
// without a message.
//
//   GetInfo      writes the adapter information to standard output
//   NewTask      loads the job file and runs the tasks `firstTask` .. `firstTask + taskCount - 1`
//                (1-based, clipped to the job's list) in sequence, up to the first that
//                cannot be started. A task that ends with an error code does not fail the request.
//   PingTask     loads the job file and fails with "Runlet adapter: Ping task time out.\n" on
//                standard error if `elapsedMs` exceeds timeLimit(`taskTimeout`)
//   EvaluateJob, LaunchApp, PingLaunch, ShutDown   succeed and do nothing
//
// Changes `context` only through the loader and the launcher.
std::int32_t dispatchOpcode(AdapterContext* context);

}  // namespace runlet
