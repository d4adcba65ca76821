#include "tool/system/signals.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>

namespace runlet_tool {
namespace {

bool isIgnored(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

timespec timeOf(std::chrono::milliseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {.tv_sec = seconds.count(), .tv_nsec = std::chrono::nanoseconds(time - seconds).count()};
}

// What the handler writes, prepared in advance: a handler cannot allocate.
std::string farewell;

extern "C" void writeFarewell(int signal) {
  const ssize_t ignored = write(STDERR_FILENO, farewell.data(), farewell.size());
  static_cast<void>(ignored);  // there is nobody to report it to
  raise(signal);               // ends the process after this handler returns
}

void setHandler(int signal, void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(signal, &action, nullptr);
}

}  // namespace

std::vector<int> stopSignals() {
  std::vector<int> signals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  std::erase_if(signals, isIgnored);
  return signals;
}

bool isStopSignalPending() {
  sigset_t pending;
  sigpending(&pending);
  const auto signals = stopSignals();
  return std::any_of(signals.begin(), signals.end(),
                     [&](int signal) { return sigismember(&pending, signal) == 1; });
}

DefaultSigchld::DefaultSigchld() {
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  usual.sa_flags = SA_NOCLDSTOP;  // a stopped child has not ended
  sigaction(SIGCHLD, &usual, &before_);
}

DefaultSigchld::~DefaultSigchld() {
  restore();
}

void DefaultSigchld::restore() const {
  sigaction(SIGCHLD, &before_, nullptr);
}

HeldSignals::HeldSignals() {
  sigemptyset(&held_);
  sigaddset(&held_, SIGCHLD);
  // A blocked signal stays pending even if it is ignored, so ignored signals must not be held.
  for (const int signal : stopSignals()) sigaddset(&held_, signal);
  sigprocmask(SIG_BLOCK, &held_, &before_);
}

HeldSignals::~HeldSignals() {
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

SignalHold::SignalHold() {
  sigemptyset(&held_);
  for (const int signal : stopSignals()) sigaddset(&held_, signal);
  pthread_sigmask(SIG_BLOCK, &held_, &former_);
}

SignalHold::~SignalHold() {
  release();
}

bool SignalHold::isInterrupted() const {
  sigset_t pending;
  sigpending(&pending);
  sigandset(&pending, &pending, &held_);
  return sigisemptyset(&pending) == 0;
}

void SignalHold::release() {
  pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

Farewell::Farewell(const std::string& text) {
  farewell = text;
  for (const int signal : stopSignals()) {
    setHandler(signal, writeFarewell, static_cast<int>(SA_RESETHAND | SA_RESTART));
  }
}

Farewell::~Farewell() {
  for (const int signal : stopSignals()) setHandler(signal, SIG_DFL, 0);
}

}  // namespace runlet_tool
