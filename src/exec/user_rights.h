// Becoming the job's group and user.
#pragma once

#include "adapter/context.h"

namespace runlet {

// None of these texts ends its line, unlike the adapter's others: the server joins them with what
// follows.
inline constexpr char groupRefusedFormat[] = "Cannot set gid %d: %s";
inline constexpr char userRefusedFormat[] = "Cannot set uid %d: %s";
inline constexpr char missingUserText[] = "Missing user name";
inline constexpr char unknownUserFormat[] = "Cannot obtain info for user %s:%s";

// The reasons where the system gives none.
inline constexpr char noGroupReason[] = "No such group";
inline constexpr char noUserReason[] = "No such user";

// Switches the process to the job's `gid`, then to its `uid`, and sets the job's `umask`. A `uid`
// of -1 is looked up by `userName` first and stored in `context`. Supplementary groups stay.
//
// Returns false after the first step that fails; the steps before it stay done. Standard error
// then has one of the texts above.
bool applyUserRights(AdapterContext* context);

}  // namespace runlet
