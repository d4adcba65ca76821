// Signal handling for a program that runs or waits for others.
#pragma once

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

namespace runlet_tool {

// Those of SIGINT, SIGTERM, SIGHUP and SIGQUIT that are not ignored. Ignored ones stay ignored, as
// nohup and background jobs require.
std::vector<int> stopSignals();

// During its lifetime, SIGCHLD has its default disposition, so that children can be waited for. The
// program may have been started with SIGCHLD ignored, and then their exit statuses would be lost.
class DefaultSigchld {
 public:
  DefaultSigchld();
  ~DefaultSigchld();
  DefaultSigchld(const DefaultSigchld&) = delete;
  DefaultSigchld& operator=(const DefaultSigchld&) = delete;

  // Restores the former disposition early, such as in a child.
  void restore() const;

 private:
  struct sigaction before_ {};
};

// During its lifetime, SIGCHLD and the signals of stopSignals() are blocked and can be waited for,
// so that none arrives at the wrong moment.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  // Returns the next of these signals, or 0 if none arrives within `time`; it may return 0 earlier.
  int await(std::chrono::milliseconds time) const;

 private:
  sigset_t held_{};
  sigset_t before_{};
  DefaultSigchld children_;
};

// Whether one of stopSignals(), which are blocked, has arrived.
bool isStopSignalPending();

// Ends the process by `signal`, so that its parent sees that. Returns only if the signal does not
// end the process, as in the init process of a container.
void endBySignal(int signal);

// Blocks the signals of stopSignals() in this process and in programs started meanwhile. They are
// delivered on release or destruction.
class SignalHold {
 public:
  SignalHold();
  ~SignalHold();
  SignalHold(const SignalHold&) = delete;
  SignalHold& operator=(const SignalHold&) = delete;

  // Whether one of them is pending.
  bool isInterrupted() const;

  void release();

 private:
  sigset_t held_;
  sigset_t former_;
};

// During its lifetime, a stop signal makes the process write `text` to standard error before it
// dies. There can only be one.
class Farewell {
 public:
  explicit Farewell(const std::string& text);
  ~Farewell();
  Farewell(const Farewell&) = delete;
  Farewell& operator=(const Farewell&) = delete;
};

}  // namespace runlet_tool
