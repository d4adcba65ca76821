// Who the tasks run as where no farm server starts them.
#pragma once

#include <string>

#include "adapter/context.h"

namespace runlet_tool {

// Root can become the job's group and user. For anybody else puts the caller's in place of the
// job's, into `context`, where the job gives a group at all: without one no job runs. Yields a
// note, "user 1000 and group 1000, not as the job's user 1001 and group 100: only root may switch",
// or "" when nothing but what the job says is the case.
std::string settleIdentity(runlet::AdapterContext* context);

}  // namespace runlet_tool
