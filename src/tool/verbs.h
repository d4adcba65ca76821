// The verbs of runlet-job.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace runlet_tool {

// What a verb does after the whole command line has been parsed. Returns the exit status.
using Action = std::function<int()>;

// Each adds its verb to `app`. If the command line names the verb, parsing sets `*action`.
void addCheck(CLI::App* app, Action* action);
void addExec(CLI::App* app, Action* action);
void addExpand(CLI::App* app, Action* action);
void addExplain(CLI::App* app, Action* action);
void addMake(CLI::App* app, Action* action);
void addRecords(CLI::App* app, Action* action);
void addReport(CLI::App* app, Action* action);
void addRun(CLI::App* app, Action* action);
void addSchema(CLI::App* app, Action* action);
void addSubmit(CLI::App* app, Action* action);

}  // namespace runlet_tool
