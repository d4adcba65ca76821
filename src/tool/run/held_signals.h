// The signals that a program which runs others has to attend to.
#pragma once

#include <chrono>
#include <csignal>

namespace runlet_tool {

// While one of these is there, SIGCHLD, SIGINT, SIGTERM, SIGHUP and SIGQUIT are blocked and can be
// waited for, so that none comes at the wrong moment. Of the last four those are left alone that
// were ignored: who starts a program with nohup or in the background means that. SIGCHLD has its
// default disposition meanwhile: where it is ignored, nobody learns how a child has ended.
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
  struct sigaction children_ {};  // what was done at SIGCHLD before
};

// Ends the program by `signal`, so that who started it sees that. Yields only in a process that the
// system does not let go this way, as the first one of a container.
void endBySignal(int signal);

}  // namespace runlet_tool
