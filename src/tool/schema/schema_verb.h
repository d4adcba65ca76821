// The verb "schema" of runlet-job.
#pragma once

#include "tool/verb.h"

namespace CLI {
class App;
}

namespace runlet_tool {

// Adds the verb, which prints the schema of job files as it is installed, byte for byte.
void addSchema(CLI::App* app, Action* action);

}  // namespace runlet_tool
