// The rights of a task that runs without a farm server: no more than its user has.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "exec/user_rights.h"

namespace runlet_tool {

// Whether this process is root's and `uid`, the user of a task, is not root. A `uid` of -1 counts
// as another user.
bool isOfAnother(std::int32_t uid);

// Protects the starter's memory while the process already belongs to another user: it leaves no
// core file, and that user cannot trace it. Must be repeated after a change of ids.
void leaveNoCore();

// Replaces the supplementary groups of this process, which needs the right to do so, by those that
// the user database gives that user; none for a user not in it. Returns 0, or the error number.
int setGroupsOf(uid_t uid);

// Drops all capabilities, unless the user of `rights` is root, and returns whether this process has
// kept none of its former rights: the real, effective and saved ids are those of `rights`, and
// there are no capabilities.
bool keepsNothing(const runlet::UserRights& rights);

// Switches the process to the group, user and mask of `*rights`, as takeUserRights does, and
// verifies that it has kept none of its former rights, as keepsNothing does.
//
// For another user it also sets that user's supplementary groups, joins its own session keyring,
// and leaves no core file, since its memory is still the starter's.
//
// False, after a line on standard error, if any of that fails; the process may then have any of
// those rights and must not execute a program. If keyrings are unavailable or not permitted, a note
// is written instead.
bool takeTaskRights(runlet::UserRights* rights);

// What is wrong with the name of a variable; empty if it is fine.
std::string complaintAboutVariable(const std::string& name);

// The environment for tasks of that user, each variable as "NAME=VALUE", sorted. From this process
// come PATH, LANG, LANGUAGE, those that begin with LC_ or a prefix in `more`, and those in `kept`.
// HOME, LOGNAME, SHELL and USER are the user's, unless they are set and in `kept`. For a user not
// in the user database, the name is the number, the home folder "/" and the shell /bin/sh.
std::vector<std::string> userEnvironment(uid_t uid, const std::vector<std::string>& kept,
                                         const std::vector<std::string_view>& more = {});

}  // namespace runlet_tool
