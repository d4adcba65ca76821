// runlet-job exec: becoming one task.
#pragma once

#include "tool/verb.h"

namespace runlet_tool {

// Adds the verb to `app`; where the command line asks for it, `*action` becomes what it does.
void addExec(CLI::App* app, Action* action);

}  // namespace runlet_tool
