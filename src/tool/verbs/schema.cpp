#include <CLI/CLI.hpp>

#include "tool/system/exit_status.h"
#include "tool/text/terminal.h"
#include "tool/verbs.h"
#include "tool/verbs/schema_text.h"

namespace runlet_tool {
namespace {

int printSchema() {
  put(schemaText);
  return exitFine;
}

}  // namespace

void addSchema(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("schema", "Print the RELAX NG schema of job files");
  verb->callback([action] { *action = printSchema; });
}

}  // namespace runlet_tool
