// Signals, for a program that runs others or waits for them.
#pragma once

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

namespace runlet_tool {

// Those of SIGINT, SIGTERM, SIGHUP and SIGQUIT that are not ignored: who starts a program with
// nohup or in the background means that.
std::vector<int> stopSignals();

// While it lives, SIGCHLD has its default disposition, so that children can be waited for: where it
// is ignored, as the program may have been started, nobody learns how they have ended.
class DefaultSigchld {
 public:
  DefaultSigchld();
  ~DefaultSigchld();
  DefaultSigchld(const DefaultSigchld&) = delete;
  DefaultSigchld& operator=(const DefaultSigchld&) = delete;

  // Takes it back early, as in a child.
  void restore() const;

 private:
  struct sigaction before_ {};
};

// While one of these is there, SIGCHLD, SIGINT, SIGTERM, SIGHUP and SIGQUIT are blocked and can be
// waited for, so that none comes at the wrong moment. Of the last four those are left alone that
// were ignored: who starts a program with nohup or in the background means that.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  // Takes the next of the signals. 0 when there is none for `time`; it may be none earlier, too.
  int await(std::chrono::milliseconds time) const;

 private:
  sigset_t held_{};
  sigset_t before_{};
  DefaultSigchld children_;
};

// Ends the program by `signal`, so that who started it sees that. Yields only in a process that the
// system does not let go this way, as the first one of a container.
void endBySignal(int signal);

// Keeps the signals of stopSignals() from this process and from programs that are
// started meanwhile, until it goes or is told to release them; then they have their effect.
class SignalHold {
 public:
  SignalHold();
  ~SignalHold();
  SignalHold(const SignalHold&) = delete;
  SignalHold& operator=(const SignalHold&) = delete;

  // Whether there has been one.
  bool isInterrupted() const;

  void release();

 private:
  sigset_t held_;
  sigset_t former_;
};

// While it lives, a stop signal makes the process write `text` to standard error before it dies of
// it.
// There can only be one.
class Farewell {
 public:
  explicit Farewell(const std::string& text);
  ~Farewell();
  Farewell(const Farewell&) = delete;
  Farewell& operator=(const Farewell&) = delete;
};

}  // namespace runlet_tool
