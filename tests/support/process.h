// Running a program and seeing all that comes out of it.
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
  // Called in the new process right before it becomes the program: for limits, users, signals
  // and descriptors. Descriptors 0, 1 and 2 are open then, all others closed; signals have their
  // default dispositions, the mask for new files is 022, and the process leads a session of its
  // own.
  std::function<void()> prepare;
  std::chrono::seconds patience{30};  // how long it may take from its start on
};

struct ProcessResult {
  pid_t pid = -1;
  std::string output;  // all of standard output
  std::string error;   // all of standard error
  int waitStatus = -1;
  std::size_t peakMemory = 0;  // most memory that it, or the caller at the fork, ever held; bytes
  std::chrono::microseconds cpuTime{};  // of the process and what it has waited for
  // What the system knew of the process at its very end, as in /proc/PID/status: with which user
  // and group it ended.
  std::string ending;
};

// A process that runs, with an empty standard input and both outputs read through pipes.
class Process {
 public:
  explicit Process(const ProcessOptions& options);
  // Kills the process, and its children with it, if it has not been waited for.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Reads until standard output holds `text`. False if it ends, or the time is up, first.
  bool readUntil(const std::string& text);

  pid_t pid() const {
    return result_.pid;
  }

  // What has been read of standard output so far.
  const std::string& output() const {
    return result_.output;
  }

  // Waits until the process has ended, whoever else still holds its outputs, without taking its
  // status; at the time limit kills it.
  void awaitEnd() const;

  // Reads both outputs to their end and waits for the process. A process that takes longer than the
  // options allow is killed.
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

// Opens `path` and makes it `descriptor`; for `prepare`. A file is made anew.
void openAs(int descriptor, const std::string& path, int flags);

}  // namespace runlet_test
