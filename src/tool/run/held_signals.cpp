#include "tool/run/held_signals.h"

#include <ctime>

#include "tool/system/stop_signals.h"

namespace runlet_tool {
namespace {

timespec timeOf(std::chrono::milliseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {.tv_sec = seconds.count(), .tv_nsec = std::chrono::nanoseconds(time - seconds).count()};
}

}  // namespace

HeldSignals::HeldSignals() {
  sigemptyset(&held_);
  sigaddset(&held_, SIGCHLD);
  // A blocked signal is kept even if it is ignored otherwise: such a one must not be held at all.
  for (const int signal : stopSignals()) sigaddset(&held_, signal);
  sigprocmask(SIG_BLOCK, &held_, &before_);
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  usual.sa_flags = SA_NOCLDSTOP;  // a child that is stopped has not ended
  sigaction(SIGCHLD, &usual, &children_);
}

HeldSignals::~HeldSignals() {
  sigaction(SIGCHLD, &children_, nullptr);
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

int HeldSignals::await(std::chrono::milliseconds time) const {
  const timespec limit = timeOf(time);
  const int signal = sigtimedwait(&held_, nullptr, &limit);
  return signal == -1 ? 0 : signal;
}

void endBySignal(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t alone;
  sigemptyset(&alone);
  sigaddset(&alone, signal);
  sigprocmask(SIG_UNBLOCK, &alone, nullptr);
  std::raise(signal);
}

}  // namespace runlet_tool
