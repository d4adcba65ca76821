#include "tool/command_line.h"

#include <CLI/CLI.hpp>

#include "tool/check/check_verb.h"
#include "tool/expand/expand_verb.h"
#include "tool/make/make_verb.h"
#include "tool/verb.h"

namespace runlet_tool {

int runCommandLine(int argc, const char* const* argv) {
  CLI::App app("Shows and checks what a job will do before it runs.", "runlet-job");
  app.set_version_flag("--version", "runlet-job " RUNLET_VERSION);
  app.require_subcommand(1);
  Action action;
  addExpand(&app, &action);
  addCheck(&app, &action);
  addExplain(&app, &action);
  addMake(&app, &action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exitFine : exitUnreadable;
  }
  return action();
}

}  // namespace runlet_tool
