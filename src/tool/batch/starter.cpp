#include "tool/batch/starter.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tool/system/exit_status.h"
#include "tool/system/files.h"
#include "tool/system/sockets.h"

namespace runlet_tool {
namespace {

using runlet::TaskStart;

// Everything needed to start a task.
struct StartRequest {
  runlet::TaskStart start;  // both outputs go to the log, whatever the job says
  int log = -1;
  int leave = -1;  // a socket: a byte lets the task begin, end of file forbids it
};

struct StartAnswer {
  int error = 0;  // 0, or why there is no process, as an error number
  pid_t process = -1;
};

// The head of a request; its texts follow, in the order of `texts`. The two descriptors are sent
// with its first byte.
struct Header {
  std::array<std::size_t, 4> lengths;  // of the texts
  std::int32_t gid;
  std::int32_t uid;
  std::int32_t umask;
};

std::array<const std::string*, 4> texts(const TaskStart& start) {
  return {&start.folder, &start.commandLine, &start.chmodPath, &start.rights.userName};
}

std::array<std::string*, 4> texts(TaskStart* start) {
  return {&start->folder, &start->commandLine, &start->chmodPath, &start->rights.userName};
}

Header headerOf(const TaskStart& start) {
  Header header{};
  const auto all = texts(start);
  std::transform(all.begin(), all.end(), header.lengths.begin(),
                 [](const std::string* text) { return text->size(); });
  header.gid = start.rights.gid;
  header.uid = start.rights.uid;
  header.umask = start.rights.umask;
  return header;
}

// False if the other side has ended.
bool sendRequest(int socket, const StartRequest& request) {
  const Header header = headerOf(request.start);
  const int descriptors[] = {request.log, request.leave};
  if (!sendMessage(socket, &header, sizeof header, descriptors)) return false;
  const auto all = texts(request.start);
  return std::all_of(all.begin(), all.end(), [=](const std::string* text) {
    return sendBytes(socket, text->data(), text->size());
  });
}

// False if the other side has ended, even in the middle of a request. In either case the caller
// closes the descriptors.
bool receiveRequest(int socket, StartRequest* request) {
  Header header{};
  int descriptors[2];
  if (!receiveMessage(socket, &header, sizeof header, descriptors)) return false;
  request->log = descriptors[0];
  request->leave = descriptors[1];
  if (request->log == -1 || request->leave == -1) return false;
  request->start.rights.gid = header.gid;
  request->start.rights.uid = header.uid;
  request->start.rights.umask = header.umask;
  request->start.redirectStderr = false;  // both outputs are the log already
  for (std::size_t i = 0; i < header.lengths.size(); ++i) {
    std::string* const text = texts(&request->start)[i];
    text->resize(header.lengths[i]);
    if (!receiveBytes(socket, text->data(), text->size())) return false;
  }
  return true;
}

bool takeStreams(int log) {
  const int input = open("/dev/null", O_RDONLY);
  return input != -1 && dup2(input, STDIN_FILENO) != -1 && close(input) == 0 &&
         dup2(log, STDOUT_FILENO) != -1 && dup2(log, STDERR_FILENO) != -1;
}

// noexcept: this process is a copy of the run, whose exception handlers must not run here.
[[noreturn]] void runTask(int socket, StartRequest* request, const sigset_t& mask,
                          const KeptVariables& kept) noexcept {
  close(socket);  // the run must see end of file when the starter has ended
  char leave = 0;
  if (!receiveBytes(request->leave, &leave, 1)) _exit(exitNoTask);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  // Without its own session, the task could not be ended together with its children.
  if (setsid() == -1 || !takeStreams(request->log)) {
    dprintf(request->log, "runlet-job: task not started: %s\n", std::strerror(errno));
    _exit(exitNoTask);
  }
  _exit(becomeStart(&request->start, kept));  // all that was written has gone out
}

// Like fork, but the new process is a child of this process's parent.
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

// Runs until the run has ended, and blocks all signals: those from a terminal are for the run and
// the tasks.
[[noreturn]] void serve(int socket, const KeptVariables& kept) noexcept {
  sigset_t all;
  sigset_t mask;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &mask);
  std::signal(SIGCHLD, SIG_DFL);
  openStreams();  // so that no received descriptor gets the number of a stream
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
  error_ = makeSockets(SOCK_STREAM, &sockets);
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
  // The scheduler may have reaped it already, so that the id is no longer ours.
  if (process_ == -1 || waitpid(process_, nullptr, WNOHANG) != 0) return;
  kill(process_, SIGKILL);  // at once, even if it is stopped
  waitpid(process_, nullptr, 0);
}

int Starter::start(const runlet::TaskStart& start, int log, pid_t* process) const {
  // The task begins only after its process id is known here: if the starter ends halfway, no
  // unknown process is left running.
  Sockets leave;
  StartAnswer answer{makeSockets(SOCK_STREAM, &leave), -1};
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
