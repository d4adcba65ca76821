#include "exec/launch.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "adapter/messages.h"
#include "exec/child.h"
#include "exec/start.h"

namespace runlet {
namespace {

// What a child without a program exits with. The parent sees 129, and reports -127.
constexpr int noProgramStatus = -127;

[[noreturn]] void runChild(const TaskStart& start) {
  becomeProgram(start.commandLine, start.redirectStderr);
  // Not _exit: the "Calling" line, which this process inherited unwritten in its output buffer, is
  // meant to be written once more. In the server's log a task without a program is called twice.
  std::exit(noProgramStatus);
}

// Creates the child, which becomes the program, and reports it to the server. Returns the child's
// process id, or -1 if there is none.
pid_t startChild(const TaskStart& start) {
  const pid_t child = fork();
  if (child == 0) runChild(start);
  if (child == -1) {
    std::fputs(forkFailedText, stderr);
  } else {
    std::printf(startedFormat, child);
  }
  std::fflush(stdout);  // the server must learn of the child while it runs
  return child;
}

// The wait status of `child`, or 0 if the wait fails. An interrupted wait is not retried: the line
// about it tells the server that the end of the task is unknown. With -1, after a failed fork, this
// waits for any child; the adapter then has none, so the server gets the line about the wait as
// well.
int waitForChild(pid_t child) {
  int status = 0;
  do {
    if (waitpid(child, &status, 0) == -1) {
      std::fprintf(stderr, waitFailedFormat, std::strerror(errno));
      return 0;
    }
  } while (!WIFEXITED(status) && !WIFSIGNALED(status));
  return status;
}

// The server reads the code as a signed byte. After death by a signal these bits are 0 and nothing
// is reported: to the server a killed task did not exit abnormally.
void reportExitCode(int status) {
  const auto code = static_cast<std::int8_t>((status >> 8) & 0xff);
  if (code == 0) return;
  std::fprintf(stderr, exitCodeFormat, code);
}

}  // namespace

bool launchTask(AdapterContext* context, std::int32_t taskIndex) {
  TaskStart start;
  if (setUpTask(context, taskIndex, &start) != SetUp::done) return false;
  const pid_t child = startChild(start);
  reportExitCode(waitForChild(child));
  if (child != -1) return true;
  std::fprintf(stderr, cannotStartFormat, getMessage(cannotStartMessage),
               start.commandLine.c_str());
  std::fprintf(stderr, checkExecutableFormat, getMessage(checkExecutableMessage));
  return false;
}

}  // namespace runlet
