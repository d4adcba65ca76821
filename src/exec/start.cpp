#include "exec/start.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "adapter/messages.h"

namespace runlet {
namespace {

// Puts the folder of the application before the job's own command; the application's file
// name is not used. `line` is the expanded argument template.
void addApplicationFolder(const std::string& appPath, const std::string& line, TaskStart* start) {
  const std::string folder = appPath.substr(0, appPath.rfind('/') + 1);
  const std::size_t space = line.find(' ');
  const std::string firstWord = line.substr(0, space);
  // Raises an uncaught out_of_range if there is no space: with an application path a job must give
  // its program at least one argument, and a lone word must not be started.
  const std::string rest = line.substr(space);
  start->chmodPath = folder + firstWord;
  start->commandLine = folder + firstWord + rest;
}

}  // namespace

std::string runFolder(const AdapterContext& context) {
  if (!context.workingFolder.empty()) return context.workingFolder;
  return context.jobFile.substr(0, context.jobFile.rfind('/'));
}

bool composeStart(const AdapterContext& context, std::int32_t taskIndex, TaskStart* start,
                  std::vector<PlaceholderUse>* uses) {
  *start = {.folder = runFolder(context),
            .commandLine = "",
            .chmodPath = "",
            .rights = {context.gid, context.uid, context.userName, context.umask},
            .redirectStderr = context.redirectStderr};
  std::string line;
  if (!fillInArguments(&context, &line, context.arguments.c_str(), taskIndex, uses)) return false;
  if (context.appPath.empty()) {
    start->commandLine = line;
  } else {
    addApplicationFolder(context.appPath, line, start);
  }
  return true;
}

bool enterRunFolder(const std::string& folder) {
  if (chdir(folder.c_str()) == 0) return true;
  std::fprintf(stderr, folderRefusedFormat, getMessage(workingFolderMessage), folder.c_str(),
               std::strerror(errno));
  return false;
}

void announceStart(const TaskStart& start) {
  // Not flushed here: the adapter writes it together with the line about the started process.
  std::printf(callingFormat, start.commandLine.c_str(), start.folder.c_str());
}

void makeExecutable(const TaskStart& start) {
  if (start.chmodPath.empty()) return;
  // Passed to the shell unquoted: application paths in use may rely on shell expansion.
  const std::string command = "/bin/chmod 755 " + start.chmodPath;
  [[maybe_unused]] const int ignored = std::system(command.c_str());  // NOLINT(cert-env33-c)
}

SetUp setUpTask(AdapterContext* context, std::int32_t taskIndex, TaskStart* start) {
  // Before the start is composed: if both fail, the folder is what is reported.
  if (!enterRunFolder(runFolder(*context))) return SetUp::folderRefused;
  if (!composeStart(*context, taskIndex, start)) {
    std::fputs(fillInFailedText, stderr);
    return SetUp::fillInFailed;
  }
  announceStart(*start);
  // Before the change of user, so that the adapter's own rights make the program executable.
  makeExecutable(*start);
  // In this process, not in a child: the group, user and mask apply to all later tasks.
  const bool areTaken = takeUserRights(&start->rights);
  context->uid = start->rights.uid;  // so that later tasks don't look it up again
  return areTaken ? SetUp::done : SetUp::rightsRefused;
}

}  // namespace runlet
