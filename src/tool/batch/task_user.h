// The user that tasks run as without a farm server.
#pragma once

#include <functional>
#include <string>

#include "adapter/context.h"

namespace runlet_tool {

// Only root can switch to the job's group and user. For anyone else, replaces them in `context` by
// the caller's own, if the job has a group: without one no job runs, whoever starts it.
//
// Returns what then differs from the job, for a message: "user 1000 and group 1000 instead of the
// job's user 1001 and group 100: only root can switch". Empty if nothing does.
std::string settleTaskUser(runlet::AdapterContext* context);

// Calls `work`, which inspects, creates or opens files. `context` has been settled.
//
// For root, unless the tasks have root's own user and group, `work` has only the rights of the
// tasks' user and group, and of the supplementary groups that the tasks get: if a folder belongs to
// that user, links in it must not make root write elsewhere. It then runs in a child process, so
// that this process never changes its rights: in
// "/", without a controlling terminal, and with no descriptors but the standard streams.
//
// Files are created with exactly the modes that `work` gives: no mask applies.
//
// `work` returns a descriptor, or -1 with the reason in errno; so does this function. The reason is
// ETIMEDOUT if it takes more than 30 seconds or a blocked stop signal arrives. The descriptor
// closes on exec and belongs to the caller.
int doAsTaskUser(const runlet::AdapterContext& context, const std::function<int()>& work);

}  // namespace runlet_tool
