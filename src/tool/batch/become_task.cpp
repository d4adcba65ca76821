#include "tool/batch/become_task.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "adapter/messages.h"
#include "adapter/task_range.h"
#include "exec/child.h"
#include "exec/start.h"
#include "tool/batch/relay.h"
#include "tool/batch/task_rights.h"
#include "tool/batch/task_user.h"
#include "tool/job/danger.h"
#include "tool/job/loading.h"
#include "tool/system/exit_status.h"
#include "tool/system/files.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::OldStderr;
using runlet::TaskStart;

bool loadTaskJob(AdapterContext* context) {
  const LoadResult result = loadJob(context);
  if (result.loading != Loading::loaded) {
    std::fprintf(stderr, "%s\n", shownMessage(result).c_str());
  } else if (result.hiddenRoot != nullptr) {
    std::fprintf(stderr,
                 "runlet-job: task not started: the %s of %s means root but is not a plain 0; "
                 "see: runlet-job explain RJ034\n",
                 result.hiddenRoot, visible(context->jobFile).c_str());
  }
  return result.loading == Loading::loaded && result.hiddenRoot == nullptr;
}

bool requireTask(const AdapterContext& context, std::int32_t number) {
  if (number >= 1 && isTask(context, number - 1)) return true;
  std::fprintf(stderr, "runlet-job: exec: no task %d in %s, which has %s\n",
               static_cast<int>(number), visible(context.jobFile).c_str(),
               quantity(context.taskList.size(), "task").c_str());
  return false;
}

bool enterFolder(const std::string& folder) {
  if (runlet::enterRunFolder(folder)) return true;
  std::fputc('\n', stderr);  // the adapter's text has no newline
  return false;
}

// Unlike the adapter, survives an exception that would end the process, and prints what the C++
// library would print for it.
bool compose(const AdapterContext& context, std::int32_t number, TaskStart* start) {
  try {
    if (composeStart(context, number - 1, start)) return true;
    std::fputs(runlet::fillInFailedText, stderr);
  } catch (const std::out_of_range& error) {
    std::fprintf(stderr, "%s\n", terminateText("std::out_of_range", error.what()).c_str());
  }
  return false;
}

// Also true if nothing is to be made executable or the file is missing: executing it fails later.
bool isPlainFile(const std::string& path) {
  struct stat status {};
  if (path.empty() || lstat(path.c_str(), &status) != 0) return true;
  return S_ISREG(status.st_mode) && (status.st_mode & (S_ISUID | S_ISGID)) == 0;
}

// The program of another user is made executable with the starter's rights, in a folder that the
// starter names. The job must not lead out of that folder, nor run anything but chmod.
bool requireSafePath(const TaskStart& start) {
  const bool isSafe = isSafeInShell(start.chmodPath);
  const bool isInFolder = ("/" + start.chmodPath + "/").find("/../") == std::string::npos;
  if (isSafe && isInFolder && isPlainFile(start.chmodPath)) return true;
  std::fprintf(stderr, "runlet-job: task not started: with -a %s %s\n",
               isSafe ? "root would change the mode of" : "a root shell would interpret the path",
               visible(start.chmodPath).c_str());
  return false;
}

void setEnvironment(const std::vector<std::string>& variables) {
  clearenv();
  for (const std::string& variable : variables) {
    const std::size_t end = variable.find('=');
    setenv(variable.substr(0, end).c_str(), variable.c_str() + end + 1, 1);
  }
}

// Everything the adapter does between entering the folder and starting the program.
bool setUp(TaskStart* start, const KeptVariables& kept) {
  const bool isOther = isOfAnother(start->rights.uid);
  if (isOther && !requireSafePath(*start)) return false;
  announceStart(*start);
  // At once, since the task's log begins with it. The adapter holds it back until the line about
  // the process, which is not written here.
  std::fflush(stdout);
  makeExecutable(*start);
  if (isOther && !leaveTerminal()) {
    std::fputs("runlet-job: task not started: it would keep its access to the terminal\n", stderr);
    return false;
  }
  if (isOther) setEnvironment(userEnvironment(static_cast<uid_t>(start->rights.uid), kept));
  if (!takeTaskRights(&start->rights)) return false;
  if (isOther) {
    openStreams();
    closefrom(STDERR_FILENO + 1);  // the starter's other descriptors
  }
  return true;
}

// Returns only if the program cannot be executed, with the exit status for that.
int becomeProgramOf(const TaskStart& start, bool isOther) {
  const OldStderr old = isOther ? OldStderr::closes : OldStderr::stays;
  const int error = runlet::becomeProgram(start.commandLine, start.redirectStderr, old);
  return error == ENOENT ? exitNotFound : exitCannotExecute;
}

void noteTaskUser(const std::string& note, std::int32_t number) {
  if (note.empty()) return;
  std::fprintf(stderr, "runlet-job: exec: task %d runs as %s\n", static_cast<int>(number),
               note.c_str());
}

}  // namespace

bool requireFullApplication(const AdapterContext& context) {
  const bool isFull = context.appPath.empty() || context.appPath.starts_with('/');
  if (isFull || !isOfAnother(context.uid)) return true;
  std::fprintf(stderr, "runlet-job: -a %s: a task of another user needs a full path\n",
               visible(context.appPath).c_str());
  return false;
}

int becomeTask(AdapterContext* context, std::int32_t number, const KeptVariables& kept) {
  if (!loadTaskJob(context) || !requireTask(*context, number)) return exitNoTask;
  // The one step that the adapter does not have: using the caller's identity instead of the job's.
  const std::string note = settleTaskUser(context);
  if (!requireFullApplication(*context)) return exitNoTask;
  const bool isOther = isOfAnother(context->uid);
  const auto become = [&] {
    TaskStart start;
    // The folder first: if the command cannot be composed either, the folder is what is reported.
    const bool isReady = enterFolder(runFolder(*context)) && compose(*context, number, &start);
    if (!isReady || !setUp(&start, kept)) return exitNoTask;
    noteTaskUser(note, number);
    return becomeProgramOf(start, isOther);
  };
  // Relayed from here on, since messages about a task that is not started also contain texts of the
  // job.
  return isOther && hasTerminal() ? relayTask(static_cast<uid_t>(context->uid), become) : become();
}

int becomeStart(TaskStart* start, const KeptVariables& kept) {
  const bool isOther = isOfAnother(start->rights.uid);
  // Unlike the adapter and `exec`, with the rights of another user: an earlier task may have turned
  // the folder into a link to one that is closed to that user.
  if (!isOther && !enterFolder(start->folder)) return exitNoTask;
  if (!setUp(start, kept) || (isOther && !enterFolder(start->folder))) return exitNoTask;
  return becomeProgramOf(*start, isOther);
}

}  // namespace runlet_tool
