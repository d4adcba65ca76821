// Rights of a task that no farm server stands in for: it gets no more than its user has.
#pragma once

#include <cstdint>

#include "exec/user_rights.h"

namespace runlet_tool {

// Whether a task of user `uid` is another user's than this process. Only root can have such a task;
// -1 is one: nobody knows then whose it is.
bool isOfAnother(std::int32_t uid);

// For the time in which a process of another user has memory of its starter: it leaves no core
// file, and that user cannot look into it. Needed anew after a change of ids.
void leaveNoCore();

// Drops all capabilities, unless the user of `rights` is root, and yields whether this process has
// kept nothing: the real, effective and saved ids are those, and there is no capability.
bool keepsNothing(const runlet::UserRights& rights);

// Switches the process to the group, the user and the mask of `*rights`, as takeUserRights does,
// and looks whether it has kept nothing: the real, effective and saved ids are those, and unless
// the user is root it has no capability.
//
// For another user it also takes that user's supplementary groups, joins a session keyring of its
// own, and leaves no core file, since its memory is still the starter's.
//
// False, after a line on standard error, where anything of that fails; then the process may have
// any of those rights and must not become a program. A system that has no keyrings, or keeps them
// from this process, gets a note instead.
bool takeTaskRights(runlet::UserRights* rights);

}  // namespace runlet_tool
