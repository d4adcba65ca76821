#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace runlet_test {
namespace {

struct Pipe {
  int readEnd;
  int writeEnd;
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  return {ends[0], ends[1]};
}

// Tests must not depend on what they inherit: signals ignored for background jobs, the mask, and
// the language of system tools.
void resetInheritedState() {
  for (int signal = 1; signal < NSIG; ++signal) std::signal(signal, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  umask(022);
  setenv("LC_ALL", "C", 1);
  unsetenv("POSIXLY_CORRECT");
}

// What is executed: the program, or a tool that runs it if RUNLET_TEST_WRAPPER is set ("valgrind
// --quiet"). The program's name is then its path.
struct Execution {
  std::string program;
  std::vector<std::string> arguments;
};

Execution executionOf(const ProcessOptions& options) {
  const std::string& program = options.program.empty() ? options.arguments[0] : options.program;
  const char* wrapper = std::getenv("RUNLET_TEST_WRAPPER");
  if (wrapper == nullptr) return {program, options.arguments};
  std::istringstream text(wrapper);
  std::vector<std::string> arguments(std::istream_iterator<std::string>(text), {});
  arguments.push_back(program);
  arguments.insert(arguments.end(), options.arguments.begin() + 1, options.arguments.end());
  return {arguments[0], arguments};
}

[[noreturn]] void become(const ProcessOptions& options, int output, int error) {
  const int input = open("/dev/null", O_RDONLY);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(error, STDERR_FILENO);
  close_range(STDERR_FILENO + 1, ~0U, 0);
  setsid();  // so that it can be killed together with its children
  resetInheritedState();
  for (const auto& [name, value] : options.environment) setenv(name.c_str(), value.c_str(), 1);
  if (!options.folder.empty() && chdir(options.folder.c_str()) != 0) _exit(99);
  const Execution execution = executionOf(options);
  std::vector<char*> argv;
  for (const std::string& argument : execution.arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  if (options.prepare) options.prepare();  // last: it may leave no memory even for a sanitizer
  execv(execution.program.c_str(), argv.data());
  _exit(98);
}

// Appends the available data to `*text`; at end of file closes the pipe and sets it to -1.
void drain(int* pipe, std::string* text) {
  std::array<char, 65536> buffer;
  const ssize_t count = read(*pipe, buffer.data(), buffer.size());
  if (count > 0) {
    text->append(buffer.data(), static_cast<std::size_t>(count));
  } else {
    close(*pipe);
    *pipe = -1;
  }
}

// The process leads a session once it runs; right after the fork there are no children yet.
void killWithChildren(pid_t pid) {
  killpg(pid, SIGKILL);
  kill(pid, SIGKILL);
}

std::string statusOf(pid_t pid) {
  std::ifstream stream("/proc/" + std::to_string(pid) + "/status");
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::chrono::microseconds timeOf(const timeval& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

}  // namespace

void openAs(int descriptor, const std::string& path, int flags) {
  const int opened = open(path.c_str(), flags, 0644);
  if (opened == -1 || dup2(opened, descriptor) == -1) _exit(96);
  if (opened != descriptor) close(opened);
}

Process::Process(const ProcessOptions& options) {
  const Pipe output = makePipe();
  const Pipe error = makePipe();
  deadline_ = std::chrono::steady_clock::now() + options.patience;
  result_.pid = fork();
  if (result_.pid == 0) become(options, output.writeEnd, error.writeEnd);
  close(output.writeEnd);
  close(error.writeEnd);
  outputPipe_ = output.readEnd;
  errorPipe_ = error.readEnd;
  if (result_.pid == -1) throw std::runtime_error("cannot fork");
}

Process::~Process() {
  if (outputPipe_ != -1) close(outputPipe_);
  if (errorPipe_ != -1) close(errorPipe_);
  if (result_.pid == -1) return;
  killWithChildren(result_.pid);
  waitpid(result_.pid, nullptr, 0);
}

bool Process::readSome() {
  std::array<pollfd, 2> pipes{{{outputPipe_, POLLIN, 0}, {errorPipe_, POLLIN, 0}}};
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline_ - std::chrono::steady_clock::now());
  if (left.count() <= 0) return false;
  if (poll(pipes.data(), pipes.size(), static_cast<int>(left.count())) <= 0) return false;
  if (pipes[0].revents != 0) drain(&outputPipe_, &result_.output);
  if (pipes[1].revents != 0) drain(&errorPipe_, &result_.error);
  return true;
}

bool Process::readUntil(const std::string& text) {
  while (result_.output.find(text) == std::string::npos) {
    if (outputPipe_ == -1 || !readSome()) return false;
  }
  return true;
}

void Process::awaitEnd() const {
  // A process may close its outputs and continue, so end of file alone means nothing.
  siginfo_t info{};
  while (waitid(P_PID, static_cast<id_t>(result_.pid), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
         info.si_pid == 0) {
    if (std::chrono::steady_clock::now() >= deadline_) killWithChildren(result_.pid);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

ProcessResult Process::finish() {
  while (outputPipe_ != -1 || errorPipe_ != -1) {
    if (!readSome()) {
      killWithChildren(result_.pid);
      break;
    }
  }
  awaitEnd();
  result_.ending = statusOf(result_.pid);
  rusage usage{};
  wait4(result_.pid, &result_.waitStatus, 0, &usage);
  result_.cpuTime = timeOf(usage.ru_utime) + timeOf(usage.ru_stime);
  result_.peakMemory = static_cast<std::size_t>(usage.ru_maxrss) * 1024;
  const ProcessResult result = result_;
  result_.pid = -1;
  return result;
}

ProcessResult runProcess(const ProcessOptions& options) {
  return Process(options).finish();
}

std::string describeStatus(int waitStatus) {
  if (WIFEXITED(waitStatus)) return "exit " + std::to_string(WEXITSTATUS(waitStatus));
  if (WIFSIGNALED(waitStatus)) return "signal " + std::to_string(WTERMSIG(waitStatus));
  return "status " + std::to_string(waitStatus);
}

}  // namespace runlet_test
