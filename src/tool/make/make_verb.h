// runlet-job make: a job file from a command line.
#pragma once

#include <CLI/CLI.hpp>

#include "tool/verb.h"

namespace runlet_tool {

// Adds the verb to `app`; where the command line asks for it, `*action` becomes what it does.
void addMake(CLI::App* app, Action* action);

}  // namespace runlet_tool
