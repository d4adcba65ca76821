// Running a program and capturing all its output.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace runlet_test {

struct ProcessOptions {
  std::vector<std::string> arguments;  // the argument vector, the program's own name first
  std::string program;                 // path of the program; empty = the first argument
  std::string folder;                  // current folder to start in; empty = the caller's
  std::vector<std::pair<std::string, std::string>> environment;  // added to the caller's
  // Called in the new process right before exec, to set limits, users, signals and descriptors. At
  // that point descriptors 0, 1 and 2 are open and all others closed; signals have their default
  // dispositions, the mask for new files is 022, and the process leads its own session.
  std::function<void()> prepare;
  std::chrono::seconds patience{30};  // time limit from its start
};

struct ProcessResult {
  pid_t pid = -1;
  std::string output;  // all of standard output
  std::string error;   // all of standard error
  int waitStatus = -1;
  std::size_t peakMemory = 0;           // peak memory in bytes, including the caller's at the fork
  std::chrono::microseconds cpuTime{};  // of the process and the children it has reaped
  // The status of the process at its end, as in /proc/PID/status: the user and group it ended with.
  std::string ending;
};

// A running process, with an empty standard input and both outputs read through pipes.
class Process {
 public:
  explicit Process(const ProcessOptions& options);
  // Kills the process and its children, if it has not been waited for.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Reads until standard output contains `text`. False if it ends or the time limit is reached
  // first.
  bool readUntil(const std::string& text);

  pid_t pid() const {
    return result_.pid;
  }

  // The standard output read so far.
  const std::string& output() const {
    return result_.output;
  }

  // Waits until the process has ended without reaping it, even if others still hold its outputs;
  // kills it at the time limit.
  void awaitEnd() const;

  // Reads both outputs to their end and waits for the process. Kills it at the time limit.
  ProcessResult finish();

 private:
  // False when the time is up.
  bool readSome();

  ProcessResult result_;
  std::chrono::steady_clock::time_point deadline_;
  int outputPipe_ = -1;
  int errorPipe_ = -1;
};

ProcessResult runProcess(const ProcessOptions& options);

// A wait status in words: "exit 0", "signal 6".
std::string describeStatus(int waitStatus);

// Opens `path` as `descriptor`; for use in `prepare`. A file is created or truncated.
void openAs(int descriptor, const std::string& path, int flags);

}  // namespace runlet_test
