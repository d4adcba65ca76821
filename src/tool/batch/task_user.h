// Who the tasks run as where no farm server starts them.
#pragma once

#include <functional>
#include <string>

#include "adapter/context.h"

namespace runlet_tool {

// Root can become the job's group and user. For anybody else puts the caller's own in place of the
// job's, into `context`, if the job gives a group: without one no job runs, whoever starts it.
//
// Yields what is then not as the job says, for a message: "user 1000 and group 1000, not as the
// job's user 1001 and group 100: only root may switch". Empty when all is.
std::string settleTaskUser(runlet::AdapterContext* context);

// Has `work` look at, make or open files with the rights of the tasks' user and group alone, where
// the caller is root: a folder may belong to that user, and root is not to write where links in it
// lead. It is done in a process of its own then, so that this one never has other rights than its
// own. `context` has been settled.
//
// Files are made with the job's mask, but never for others or the group to write to, and always for
// their owner to read, write and enter. The mask of this process is as before afterwards.
//
// `work` yields a descriptor, or -1 with the reason in errno; so does this. The descriptor closes
// on exec and is the caller's.
int doAsTaskUser(const runlet::AdapterContext& context, const std::function<int()>& work);

}  // namespace runlet_tool
