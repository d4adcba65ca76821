#include "tool/run/starter.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tool/run/starter_message.h"
#include "tool/system/streams.h"

namespace runlet_tool {
namespace {

struct Sockets {
  int ours = -1;
  int theirs = -1;
};

// Above the standard streams, which may be closed, and which the task has others in place of.
int aboveStreams(int descriptor) {
  const int above = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return above;
}

// 0, or the error number.
int makeSockets(Sockets* sockets) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return errno;
  *sockets = {aboveStreams(ends[0]), aboveStreams(ends[1])};
  return sockets->ours == -1 || sockets->theirs == -1 ? errno : 0;
}

void closeSockets(const Sockets& sockets) {
  close(sockets.ours);
  close(sockets.theirs);
}

bool takeStreams(int log) {
  const int input = open("/dev/null", O_RDONLY);
  return input != -1 && dup2(input, STDIN_FILENO) != -1 && close(input) == 0 &&
         dup2(log, STDOUT_FILENO) != -1 && dup2(log, STDERR_FILENO) != -1;
}

// Without exceptions, which would be handled as those of the run.
[[noreturn]] void runTask(int socket, StartRequest* request, const sigset_t& mask,
                          const KeptVariables& kept) noexcept {
  close(socket);  // whose end tells the run that the starter has ended
  char leave = 0;
  if (!receiveBytes(request->leave, &leave, 1)) _exit(exitNoTask);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  // Outside of a session of its own the task could not be ended with all that it has started.
  if (setsid() == -1 || !takeStreams(request->log)) {
    dprintf(request->log, "runlet-job: the task is not started: %s\n", std::strerror(errno));
    _exit(exitNoTask);
  }
  _exit(becomeStart(&request->start, kept));  // all that was written has gone out
}

// A copy of this process, as fork makes it, that is a child of this one's parent.
pid_t forkSibling() {
  return static_cast<pid_t>(
      syscall(SYS_clone, CLONE_PARENT | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

StartAnswer startTask(int socket, StartRequest* request, const sigset_t& mask,
                      const KeptVariables& kept) {
  const pid_t process = forkSibling();
  if (process == 0) runTask(socket, request, mask, kept);
  return {process == -1 ? errno : 0, process};
}

// Until the run has ended, which is all that ends this process: signals from a terminal are for the
// run and the tasks.
[[noreturn]] void serve(int socket, const KeptVariables& kept) noexcept {
  sigset_t all;
  sigset_t mask;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &mask);
  std::signal(SIGCHLD, SIG_DFL);
  openStreams();  // or one that arrives could have the number of a standard stream
  while (true) {
    StartRequest request;
    if (!receiveRequest(socket, &request)) break;
    const StartAnswer answer = startTask(socket, &request, mask, kept);
    close(request.log);
    close(request.leave);
    if (!sendBytes(socket, &answer, sizeof answer)) break;
  }
  _exit(EXIT_SUCCESS);
}

}  // namespace

Starter::Starter(const KeptVariables& kept) {
  Sockets sockets;
  error_ = makeSockets(&sockets);
  if (error_ == 0) process_ = fork();
  if (process_ == 0) {
    close(sockets.ours);
    serve(sockets.theirs, kept);
  }
  if (error_ == 0 && process_ == -1) error_ = errno;
  close(sockets.theirs);
  socket_ = sockets.ours;
}

Starter::~Starter() {
  close(socket_);
  // It may have been waited for by whoever waits for any child, and then has no id any more.
  if (process_ == -1 || waitpid(process_, nullptr, WNOHANG) != 0) return;
  kill(process_, SIGKILL);  // at once, even if it is stopped
  waitpid(process_, nullptr, 0);
}

int Starter::start(const runlet::TaskStart& start, int log, pid_t* process) const {
  // The process of the task begins only when its id is known here: where the starter ends half way,
  // nothing runs that nobody knows of.
  Sockets leave;
  StartAnswer answer{makeSockets(&leave), -1};
  const bool isAnswered = answer.error != 0 || (sendRequest(socket_, {start, log, leave.theirs}) &&
                                                receiveBytes(socket_, &answer, sizeof answer));
  if (isAnswered && answer.error == 0) {
    *process = answer.process;
    sendBytes(leave.ours, "", 1);
  }
  closeSockets(leave);
  return isAnswered ? answer.error : starterGone;
}

}  // namespace runlet_tool
