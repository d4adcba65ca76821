// What the user database says about the user of a task.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace runlet_tool {

// The user's groups, the primary one among them; none for a user whom the database does not know.
std::vector<gid_t> groupsOf(uid_t uid);

// Gives the process the environment of that user: HOME, USER, LOGNAME and SHELL are the user's; of
// those that there are, PATH, LANG, LANGUAGE, all that begin with LC_ and those in `kept` stay; the
// others go. A user whom the database does not know is named by the number, at home in "/" and has
// the shell /bin/sh.
void setEnvironmentOf(uid_t uid, const std::vector<std::string>& kept);

}  // namespace runlet_tool
