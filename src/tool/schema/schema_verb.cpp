#include "tool/schema/schema_verb.h"

#include <cstdio>

#include "tool/schema/schema_text.h"

namespace runlet_tool {
namespace {

int printSchema() {
  const std::size_t written = std::fwrite(schemaText.data(), 1, schemaText.size(), stdout);
  if (written == schemaText.size() && std::fflush(stdout) == 0) return exitFine;
  std::perror("runlet-job: schema");
  return exitUnreadable;
}

}  // namespace

void addSchema(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("schema", "Print the schema of job files, in RELAX NG");
  verb->callback([action] { *action = printSchema; });
}

}  // namespace runlet_tool
