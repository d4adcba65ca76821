#include "tool/schema/schema_verb.h"

#include <cstdio>

#include "tool/schema/schema_text.h"

namespace runlet_tool {
namespace {

int printSchema() {
  std::fwrite(schemaText.data(), 1, schemaText.size(), stdout);
  return exitFine;
}

}  // namespace

void addSchema(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("schema", "Print the schema of job files, in RELAX NG");
  verb->callback([action] { *action = printSchema; });
}

}  // namespace runlet_tool
