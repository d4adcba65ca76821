#include "tool/schema/schema_verb.h"

#include "tool/schema/schema_text.h"
#include "tool/text/output.h"

namespace runlet_tool {
namespace {

int printSchema() {
  put(schemaText);
  return exitFine;
}

}  // namespace

void addSchema(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("schema", "Print the schema of job files, in RELAX NG");
  verb->callback([action] { *action = printSchema; });
}

}  // namespace runlet_tool
