// What is done before a task's program is started.
#pragma once

#include <string>

namespace runlet {

// With a message, the run folder and the reason. No line end: the server joins this with what
// follows.
inline constexpr char folderRefusedFormat[] = "Runlet adapter: %s'%s': %s";

// Makes `folder` the current one. False, after that text on standard error, when it cannot be
// entered.
//
// The folder stays the current one for the tasks that follow, so a relative run folder is entered
// for the first task only and then looked for inside itself.
bool enterFolder(const std::string& folder);

// Makes the file of the task's program executable, by the shell command "/bin/chmod 755 " with the
// path `program` behind it as it stands; does nothing for an empty path. Whether it worked is not
// told: a program that still cannot be executed is reported when it is started.
void makeExecutable(const std::string& program);

}  // namespace runlet
