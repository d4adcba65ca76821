#include "tool/batch/relay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "tool/system/exit_status.h"
#include "tool/system/files.h"
#include "tool/system/signals.h"
#include "tool/text/characters.h"

namespace runlet_tool {
namespace {

// An output of the task that goes to a terminal.
struct Output {
  int stream = -1;  // of this process
  int source = -1;  // to read the task's output from; -1 = at its end
  std::string rest;
};

using Outputs = std::array<Output, 2>;

// Writes everything, even if the terminal is non-blocking and takes only part at a time.
void show(int stream, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(stream, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd event{stream, POLLOUT, 0};
      poll(&event, 1, -1);
    } else {
      return;  // the terminal is gone; the task continues without it
    }
  }
}

// Shows what is available without waiting for more. Returns the number of bytes.
std::size_t relay(Output* output) {
  char part[65536];
  const ssize_t count = read(output->source, part, sizeof part);
  if (count > 0) {
    show(output->stream, visiblePart({part, static_cast<std::size_t>(count)}, &output->rest));
    return static_cast<std::size_t>(count);
  }
  if (count == 0 || errno != EAGAIN) {
    close(output->source);
    output->source = -1;
  }
  return 0;
}

// After the task's end: shows what the pipe holds now and no more, since other processes may
// continue writing.
void relayLast(Output* output) {
  int left = 0;
  ioctl(output->source, FIONREAD, &left);
  while (left > 0) {
    const std::size_t count = relay(output);
    if (count == 0) return;
    left -= static_cast<int>(count);
  }
}

struct Pipes {
  Outputs outputs;
  int writeEnds[2] = {-1, -1};
};

// Creates one for each output that is a terminal, owned by that user. False with the reason in
// errno.
bool makePipes(uid_t user, Pipes* pipes) {
  for (int i = 0; i < 2; ++i) {
    int ends[2];
    if (isatty(STDOUT_FILENO + i) == 0) continue;
    if (pipe2(ends, O_CLOEXEC) != 0 || fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0) return false;
    // Otherwise the task could not open /dev/stdout and /dev/stderr.
    [[maybe_unused]] const int ignored = fchown(ends[1], user, static_cast<gid_t>(-1));
    pipes->outputs[static_cast<std::size_t>(i)] = {STDOUT_FILENO + i, ends[0], ""};
    pipes->writeEnds[i] = ends[1];
  }
  return true;
}

void showRest(const Output& output) {
  show(output.stream, visibleBytes(output.rest));
}

// In the child: replaces the streams that are terminals. False if that fails.
bool replaceTerminals(const int (&writeEnds)[2]) {
  for (int i = 0; i < 2; ++i) {
    if (writeEnds[i] != -1 && dup2(writeEnds[i], STDOUT_FILENO + i) == -1) return false;
  }
  if (isatty(STDIN_FILENO) == 0) return true;
  const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
  return input != -1 && dup2(input, STDIN_FILENO) != -1;
}

void reportNotDetached() {
  std::fprintf(stderr, "runlet-job: exec: cannot detach the task from the terminal: %s\n",
               std::strerror(errno));
}

int becomeRelayed(const int (&writeEnds)[2], const std::function<int()>& become) {
  if (setsid() != -1 && replaceTerminals(writeEnds)) return become();
  reportNotDetached();
  return exitNoTask;
}

// Runs until the child has ended, and returns its wait status.
int attend(pid_t child, int signals, Outputs* outputs) {
  while (true) {
    pollfd events[] = {
        {signals, POLLIN, 0}, {(*outputs)[0].source, POLLIN, 0}, {(*outputs)[1].source, POLLIN, 0}};
    poll(events, std::size(events), -1);
    signalfd_siginfo info{};
    if (read(signals, &info, sizeof info) == sizeof info && info.ssi_signo != SIGCHLD) {
      const auto signal = static_cast<int>(info.ssi_signo);
      if (kill(-child, signal) != 0) kill(child, signal);
      kill(-child, SIGCONT);  // a stopped task would not see the signal
    }
    int status = W_EXITCODE(exitNoTask, 0);  // if the wait fails
    const bool hasEnded = waitpid(child, &status, WNOHANG) != 0;
    for (Output& output : *outputs) {
      if (output.source != -1) hasEnded ? relayLast(&output) : static_cast<void>(relay(&output));
    }
    if (hasEnded) return status;
  }
}

// Ends as the child does.
int relayUntilEnd(pid_t child, int signals, Pipes* pipes) {
  for (const int end : pipes->writeEnds) close(end);
  const int status = attend(child, signals, &pipes->outputs);
  for (const Output& output : pipes->outputs) showRest(output);
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);  // only the task leaves a core file
  if (WIFSIGNALED(status)) endBySignal(WTERMSIG(status));
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

sigset_t relayedSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGCHLD);
  for (const int signal : stopSignals()) sigaddset(&set, signal);
  return set;
}

}  // namespace

bool hasTerminal() {
  return isatty(STDIN_FILENO) != 0 || isatty(STDOUT_FILENO) != 0 || isatty(STDERR_FILENO) != 0;
}

bool leaveTerminal() {
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  // If the open fails for another reason, such as no free descriptor, there may be a terminal.
  if (terminal == -1 && (errno == ENXIO || errno == ENOENT)) return true;
  bool isLeft = setsid() != -1;
  if (!isLeft && terminal != -1) {
    // A session leader detaches the whole session from the terminal, which sends a SIGHUP.
    struct sigaction ignored {};
    struct sigaction before {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGHUP, &ignored, &before);
    isLeft = ioctl(terminal, TIOCNOTTY) == 0;
    sigaction(SIGHUP, &before, nullptr);
  }
  close(terminal);
  return isLeft;
}

int relayTask(uid_t user, const std::function<int()>& become) {
  openStreams();  // so that no descriptor opened here gets the number of a stream
  Pipes pipes;
  const sigset_t held = relayedSignals();
  sigset_t before;
  sigprocmask(SIG_BLOCK, &held, &before);
  const DefaultSigchld children;
  const int signals = signalfd(-1, &held, SFD_NONBLOCK | SFD_CLOEXEC);
  const bool isReady = signals != -1 && makePipes(user, &pipes);
  const pid_t child = isReady ? fork() : -1;
  switch (child) {
    case -1:
      reportNotDetached();
      return exitNoTask;
    case 0:
      children.restore();
      sigprocmask(SIG_SETMASK, &before, nullptr);
      _exit(becomeRelayed(pipes.writeEnds, become));
    default:
      return relayUntilEnd(child, signals, &pipes);
  }
}

}  // namespace runlet_tool
