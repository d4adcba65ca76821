// runlet-job run: a job's tasks on this machine.
#pragma once

#include "tool/verb.h"

namespace runlet_tool {

// Adds the verb to `app`; where the command line asks for it, `*action` becomes what it does.
void addRun(CLI::App* app, Action* action);

}  // namespace runlet_tool
