#include "exec/launch.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "adapter/messages.h"
#include "exec/child.h"
#include "exec/command.h"
#include "exec/set_up.h"
#include "exec/user_rights.h"

namespace runlet {
namespace {

// Creates the child, which becomes the program, and tells the server about it. Yields the child's
// process id, or -1 when there is none.
pid_t startChild(const Command& command, bool redirectStderr) {
  const pid_t child = fork();
  if (child == 0) runProgram(command.line, redirectStderr);
  if (child == -1) {
    std::fprintf(stderr, "Runlet adapter: Cannot start a new child process\n");
  } else {
    std::printf("[ServerMessage]ProcessStarted processId=%i\n", child);
  }
  std::fflush(stdout);  // the server wants to know the child while it runs
  return child;
}

// The wait status of `child`, or 0 when the wait fails. An interrupted wait is not taken up
// again: the line about it tells the server that how the task ends is not known. With -1, after a
// failed fork, this waits for any child; the adapter has none of its own then, and the server
// gets the line about the wait as well.
int waitForChild(pid_t child) {
  int status = 0;
  do {
    if (waitpid(child, &status, 0) == -1) {
      std::fprintf(stderr, "Wait Error:%s\n", std::strerror(errno));
      return 0;
    }
  } while (!WIFEXITED(status) && !WIFSIGNALED(status));
  return status;
}

// The server reads the code as a signed byte. Death by a signal leaves these bits 0 and is not
// reported: to the server a task that was killed did not exit abnormally.
void reportExitCode(int status) {
  const auto code = static_cast<std::int8_t>((status >> 8) & 0xff);
  if (code == 0) return;
  std::fprintf(stderr, "Runlet adapter: Process exit abnormally,Exit code is %d\n", code);
}

}  // namespace

bool launchTask(AdapterContext* context, std::int32_t taskIndex) {
  const std::string folder = runFolder(*context);
  if (!enterFolder(folder)) return false;
  Command command;
  if (!composeCommand(*context, taskIndex, &command)) {
    std::fputs(fillInFailedText, stderr);
    return false;
  }
  // Not flushed here: it goes out with the line about the started process.
  std::printf(callingFormat, command.line.c_str(), folder.c_str());
  // Before the change of user, so that the adapter's own rights make the program executable.
  makeExecutable(command.program);
  // In the adapter, not in the child: the group, user and mask hold for all tasks that follow.
  if (!applyUserRights(context)) return false;

  const pid_t child = startChild(command, context->redirectStderr);
  reportExitCode(waitForChild(child));
  if (child != -1) return true;
  std::fprintf(stderr, "%s %s\n", getMessage(cannotStartMessage), command.line.c_str());
  std::fprintf(stderr, "%s\n", getMessage(checkExecutableMessage));
  return false;
}

}  // namespace runlet
