#include "tool/batch/starter.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
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
#include <numeric>
#include <span>
#include <string>

#include "tool/batch/guard.h"
#include "tool/system/exit_status.h"
#include "tool/system/files.h"
#include "tool/system/sockets.h"

namespace runlet_tool {
namespace {

using runlet::TaskStart;

// What the starter process inherits.
struct Links {
  int socket;  // requests and answers
  int input;   // the standard input of tasks
};

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
bool sendRequest(int socket, const TaskStart& start, int log, int leave) {
  const Header header = headerOf(start);
  std::string message(reinterpret_cast<const char*>(&header), sizeof header);
  for (const std::string* text : texts(start)) message += *text;
  // The socket is blocking, so that one call is enough however long the texts are.
  const int descriptors[] = {log, leave};
  return sendMessage(socket, message.data(), message.size(), descriptors);
}

// False if the other side has ended, even in the middle of a request. In either case the caller
// closes the descriptors, which are -1 if there are too many open files.
bool receiveRequest(int socket, StartRequest* request) {
  Header header{};
  int descriptors[2];
  if (!receiveMessage(socket, &header, sizeof header, descriptors)) return false;
  request->log = descriptors[0];
  request->leave = descriptors[1];
  request->start.rights.gid = header.gid;
  request->start.rights.uid = header.uid;
  request->start.rights.umask = header.umask;
  request->start.redirectStderr = false;  // both outputs are the log already
  const std::size_t size =
      std::accumulate(header.lengths.begin(), header.lengths.end(), std::size_t{0});
  std::string all(size, '\0');
  if (!receiveBytes(socket, all.data(), all.size())) return false;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < header.lengths.size(); ++i) {
    texts(&request->start)[i]->assign(all, begin, header.lengths[i]);
    begin += header.lengths[i];
  }
  return true;
}

bool takeStreams(int input, int log) {
  return dup2(input, STDIN_FILENO) != -1 && dup2(log, STDOUT_FILENO) != -1 &&
         dup2(log, STDERR_FILENO) != -1;
}

// noexcept: this process is a copy of the run, whose exception handlers must not run here.
[[noreturn]] void runTask(const Links& links, StartRequest* request, const sigset_t& mask,
                          const KeptVariables& kept) noexcept {
  close(links.socket);  // the run must see end of file when the starter has ended
  // Without its own session, the task could not be ended together with its children.
  if (setsid() == -1 || !takeStreams(links.input, request->log)) {
    dprintf(request->log, "runlet-job: task not started: %s\n", std::strerror(errno));
    _exit(exitNoTask);
  }
  char leave = 0;
  if (!receiveBytes(request->leave, &leave, 1)) _exit(exitNoTask);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  _exit(becomeStart(&request->start, kept));  // all that was written has gone out
}

// Like fork, but the new process is a child of this process's parent. `*descriptor` gets its pidfd;
// it is unchanged if the system has none, and may be null.
pid_t forkSibling(int* descriptor) {
  constexpr unsigned long flags = CLONE_PARENT | SIGCHLD;
  if (descriptor != nullptr) {
    const long process =
        syscall(SYS_clone, flags | CLONE_PIDFD, nullptr, descriptor, nullptr, nullptr);
    if (process != -1) return static_cast<pid_t>(process);
  }
  return static_cast<pid_t>(syscall(SYS_clone, flags, nullptr, nullptr, nullptr, nullptr));
}

StartAnswer startTask(const Links& links, StartRequest* request, const sigset_t& mask,
                      const KeptVariables& kept, TaskGuard* guard) {
  int descriptor = -1;
  const pid_t process = forkSibling(guard->hasRoom() ? &descriptor : nullptr);
  if (process == 0) runTask(links, request, mask, kept);
  if (process == -1) return {errno, -1};
  guard->add(process, descriptor);
  return {0, process};
}

// Runs until the run has ended, and blocks all signals: those from a terminal are for the run and
// the tasks.
[[noreturn]] void serve(const Links& links, const KeptVariables& kept,
                        std::chrono::milliseconds grace) noexcept {
  // A signal to the run's group, or to every process of its name, must not end this one, too: it
  // then ends the tasks.
  setsid();
  prctl(PR_SET_NAME, "runlet-starter");
  sigset_t all;
  sigset_t mask;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &mask);
  std::signal(SIGCHLD, SIG_DFL);
  openStreams();  // so that no received descriptor gets the number of a stream
  TaskGuard guard;
  StartRequest request;
  bool isAnswered = true;
  while (isAnswered && receiveRequest(links.socket, &request)) {
    const bool isComplete = request.log != -1 && request.leave != -1;
    const StartAnswer answer =
        isComplete ? startTask(links, &request, mask, kept, &guard) : StartAnswer{EMFILE, -1};
    close(request.log);
    close(request.leave);
    isAnswered = sendBytes(links.socket, &answer, sizeof answer);
  }
  // The run was killed; at its own end it kills this process. If only an answer could not be sent,
  // the run takes this process for gone, and lets the other tasks run on.
  if (isAnswered || errno == EPIPE) guard.endAll(grace);
  _exit(EXIT_SUCCESS);
}

}  // namespace

Starter::Starter(const KeptVariables& kept, std::chrono::milliseconds grace) {
  Sockets sockets;
  const int input = aboveStreams(open("/dev/null", O_RDONLY | O_CLOEXEC));
  error_ = input == -1 ? errno : makeSockets(SOCK_STREAM, &sockets);
  if (error_ == 0) process_ = fork();
  if (process_ == 0) {
    close(sockets.ours);
    serve({sockets.theirs, input}, kept, grace);
  }
  if (error_ == 0 && process_ == -1) error_ = errno;
  close(input);
  close(sockets.theirs);
  socket_ = sockets.ours;
}

Starter::~Starter() {
  end();
  close(socket_);
}

int Starter::start(const runlet::TaskStart& start, int log, const Announce& announce,
                   pid_t* process) const {
  // The task begins only after its process id is known here: if the starter ends halfway, no
  // unknown process is left running.
  Sockets leave;
  StartAnswer answer{makeSockets(SOCK_STREAM, &leave), -1};
  const bool isAnswered = answer.error != 0 || (sendRequest(socket_, start, log, leave.theirs) &&
                                                receiveBytes(socket_, &answer, sizeof answer));
  bool isAllowed = false;
  if (isAnswered && answer.error == 0) {
    *process = answer.process;
    isAllowed = !announce || announce(answer.process);
    if (isAllowed) sendBytes(leave.ours, "", 1);
  }
  closeSockets(leave);
  if (!isAnswered) return starterGone;
  if (answer.error != 0 || isAllowed) return answer.error;
  kill(answer.process, SIGKILL);  // it ends by itself unless somebody has stopped it
  waitpid(answer.process, nullptr, 0);
  return startForbidden;
}

void Starter::end() {
  // The scheduler may have reaped it already, so that the id is no longer ours.
  if (process_ == -1 || waitpid(process_, nullptr, WNOHANG) != 0) return;
  kill(process_, SIGKILL);  // before it sees end of file, and at once, even if it is stopped
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

}  // namespace runlet_tool
