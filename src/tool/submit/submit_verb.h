// runlet-job submit: the tasks of a job as an array of an engine.
#pragma once

#include "tool/verb.h"

namespace runlet_tool {

// Adds the verb to `app`; where the command line asks for it, `*action` becomes what it does.
void addSubmit(CLI::App* app, Action* action);

}  // namespace runlet_tool
