// Turning the process into a task of a job, so that its parent sees how the task itself ends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "exec/start.h"

namespace runlet_tool {

// A task of another user, which only root can start, inherits nothing of root's: it gets that
// user's supplementary groups and environment, only its three standard streams, no capabilities and
// its own session keyring. These variables of the caller are kept.
using KeptVariables = std::vector<std::string>;

// False, after a line on standard error, if -a must not be used with the job of `context`, which
// has been settled (see batch/task_user.h): a task of another user requires a full path. With any
// other path, the job would choose what root's chmod changes.
bool requireFullApplication(const runlet::AdapterContext& context);

// Becomes task `number` (from 1) of the job given by `jobFile` and `appPath` of `context`: in its
// folder, with its group, user, mask and outputs, after announcing it on standard output as the
// adapter does. Differences from a child of the adapter are listed in docs/running-on-a-cluster.md,
// "Differences from the farm".
//
// Returns only on failure, with an exit status, after the adapter's text for it on standard error,
// or this program's own if the adapter has none.
int becomeTask(runlet::AdapterContext* context, std::int32_t number, const KeptVariables& kept);

// The same for a start that is already composed, in a process whose two outputs are the task's log.
int becomeStart(runlet::TaskStart* start, const KeptVariables& kept);

}  // namespace runlet_tool
