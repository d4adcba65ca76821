// Becoming the job's group and user.
#pragma once

#include "adapter/context.h"

namespace runlet {

// Switches the process to the job's `gid`, then to its `uid`, and sets the job's `umask`. A `uid`
// of -1 is looked up by `userName` first and stored in `context`. Supplementary groups stay.
//
// Returns false after the first step that fails; the steps before it stay done. Standard error
// then has one of these texts, all without a line end:
//   "Cannot set gid %d: %s"   "Missing user name"   "Cannot obtain info for user %s:%s"
//   "Cannot set uid %d: %s"
bool applyUserRights(AdapterContext* context);

}  // namespace runlet
