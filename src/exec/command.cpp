#include "exec/command.h"

namespace runlet {
namespace {

// Puts the folder of the application in front of the job's own command; the application's file
// name is not used. `line` is the expanded argument template.
void addApplicationFolder(const std::string& appPath, const std::string& line, Command* command) {
  const std::string folder = appPath.substr(0, appPath.rfind('/') + 1);
  const std::size_t space = line.find(' ');
  const std::string firstWord = line.substr(0, space);
  // Out of range without a space, and nothing catches it: with an application path a job has to
  // give its program at least one argument, and a lone word must not be started.
  const std::string rest = line.substr(space);
  command->program = folder + firstWord;
  command->line = folder + firstWord + rest;
}

}  // namespace

std::string runFolder(const AdapterContext& context) {
  if (!context.workingFolder.empty()) return context.workingFolder;
  return context.jobFile.substr(0, context.jobFile.rfind('/'));
}

bool composeCommand(const AdapterContext& context, std::int32_t taskIndex, Command* command,
                    std::vector<PlaceholderUse>* uses) {
  std::string line;
  const char* argumentTemplate = context.arguments.c_str();
  if (!fillInArguments(&context, &line, argumentTemplate, taskIndex, uses)) return false;
  if (context.appPath.empty()) {
    command->line = line;
  } else {
    addApplicationFolder(context.appPath, line, command);
  }
  return true;
}

}  // namespace runlet
