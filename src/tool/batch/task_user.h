// Who the tasks run as where no farm server starts them.
#pragma once

#include <functional>
#include <string>

#include "adapter/context.h"

namespace runlet_tool {

// Root can become the job's group and user. For anybody else puts the caller's own in place of the
// job's, into `context`, if the job gives a group: without one no job runs, whoever starts it.
//
// Yields what is then not as the job says, for a message: "user 1000 and group 1000 instead of
// the job's user 1001 and group 100: only root can switch". Empty when all is.
std::string settleTaskUser(runlet::AdapterContext* context);

// Has `work` look at, make or open files with the rights of the tasks' user and group alone, where
// the caller is root: a folder may belong to that user, who must not have root write where links in
// it lead. It is done in a process of its own then, so that this one never has other rights than
// its own: in "/", without a controlling terminal, and with no descriptors but the standard
// streams. `context` has been settled.
//
// Files are made with the modes that `work` gives: no mask is applied to them.
//
// `work` yields a descriptor, or -1 with the reason in errno; so does this. It is ETIMEDOUT where
// that takes more than 30 seconds, or until a signal to end comes that is blocked. The descriptor
// closes on exec and is the caller's.
int doAsTaskUser(const runlet::AdapterContext& context, const std::function<int()>& work);

}  // namespace runlet_tool
