// runlet-job expand: what each task will be.
#pragma once

#include "tool/verb.h"

namespace runlet_tool {

// Adds the verb to `app`; where the command line asks for it, `*action` becomes what it does.
void addExpand(CLI::App* app, Action* action);

}  // namespace runlet_tool
