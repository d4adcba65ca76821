// What happens where a user stops the program while it submits, or waits.
#pragma once

#include <csignal>
#include <string>

namespace runlet_tool {

// Keeps stop signals, see system/stop_signals.h, from this process and from programs that are
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
