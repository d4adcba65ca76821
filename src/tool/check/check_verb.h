// runlet-job check and explain: what is wrong with a job, and what that means.
#pragma once

#include "tool/verb.h"

namespace runlet_tool {

// Each adds its verb to `app`; where the command line asks for it, `*action` becomes what it does.
void addCheck(CLI::App* app, Action* action);
void addExplain(CLI::App* app, Action* action);

}  // namespace runlet_tool
