// runlet-job schema: the schema of job files.
#pragma once

#include <CLI/CLI.hpp>

#include "tool/verb.h"

namespace runlet_tool {

// Adds the verb to `app`; where the command line asks for it, `*action` prints the schema as it is
// installed, byte for byte.
void addSchema(CLI::App* app, Action* action);

}  // namespace runlet_tool
