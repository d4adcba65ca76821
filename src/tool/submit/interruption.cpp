#include "tool/submit/interruption.h"

#include <unistd.h>

#include "tool/system/stop_signals.h"

namespace runlet_tool {
namespace {

// What the handler writes: in it, only what is there already may be used.
std::string farewell;

extern "C" void sayFarewell(int signal) {
  const ssize_t ignored = write(STDERR_FILENO, farewell.data(), farewell.size());
  static_cast<void>(ignored);  // there is nobody to tell
  raise(signal);               // which now ends the process, once this has returned
}

void setHandler(int signal, void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(signal, &action, nullptr);
}

}  // namespace

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
    setHandler(signal, sayFarewell, static_cast<int>(SA_RESETHAND | SA_RESTART));
  }
}

Farewell::~Farewell() {
  for (const int signal : stopSignals()) setHandler(signal, SIG_DFL, 0);
}

}  // namespace runlet_tool
