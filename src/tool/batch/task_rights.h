// Rights of a task that no farm server stands in for: it gets no more than its user has.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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

// What is wrong with the name of a variable; empty if nothing is.
std::string complaintAboutVariable(const std::string& name);

// The variables, each as "NAME=VALUE", in order. Of this process's own these are PATH, LANG,
// LANGUAGE, those that begin with LC_ or with one of `more`, and those in `kept`. HOME, LOGNAME,
// SHELL and USER are the user's, unless they are in `kept` and there is one. A user whom the user
// database does not know is named by the number, is at home in "/" and has the shell /bin/sh.
std::vector<std::string> userEnvironment(uid_t uid, const std::vector<std::string>& kept,
                                         const std::vector<std::string_view>& more = {});

}  // namespace runlet_tool
