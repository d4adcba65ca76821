// The verbs of runlet-job.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace runlet_tool {

// What the command line asks for, to be done once it has been read to its end. Yields the exit
// status of the program.
using Action = std::function<int()>;

// Each adds its verb to `app`; where the command line asks for it, `*action` becomes what it does.
void addCheck(CLI::App* app, Action* action);
void addExec(CLI::App* app, Action* action);
void addExpand(CLI::App* app, Action* action);
void addExplain(CLI::App* app, Action* action);
void addMake(CLI::App* app, Action* action);
void addRun(CLI::App* app, Action* action);
void addSchema(CLI::App* app, Action* action);
void addSubmit(CLI::App* app, Action* action);

}  // namespace runlet_tool
