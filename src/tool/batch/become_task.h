// A process that becomes a task of a job, so that whoever started it sees how the task itself ends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "exec/start.h"

namespace runlet_tool {

// A task of another user than the caller, whom only root may have, gets none of the caller's own:
// it has that user's supplementary groups and environment, no descriptors but its three streams, no
// capabilities and a session keyring of its own. These of the caller's variables stay.
using KeptVariables = std::vector<std::string>;

// False, after a line on standard error, if -a may not be used with the job of `context`, which has
// been settled (see batch/task_user.h): for a task of another user only a full path may. Any other
// leads the chmod, which is root's, to where the job says.
bool requireFullApplication(const runlet::AdapterContext& context);

// Becomes the task `number` (from 1) of the job that `context` names with `jobFile` and `appPath`:
// in its folder, with its group, user, mask and outputs, after announcing it on standard output as
// the adapter does. What is not as in a child of the adapter is listed in
// docs/running-on-a-cluster.md, "Differences from the farm".
//
// Returns only where that fails, with one of the statuses, after the adapter's text for it on
// standard error, or this program's own where the adapter has none.
int becomeTask(runlet::AdapterContext* context, std::int32_t number, const KeptVariables& kept);

// The same for a start that has been composed, in a process whose two outputs are the task's log.
int becomeStart(runlet::TaskStart* start, const KeptVariables& kept);

}  // namespace runlet_tool
