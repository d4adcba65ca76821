#include "tool/system/stop_signals.h"

#include <csignal>

namespace runlet_tool {
namespace {

bool isIgnored(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

}  // namespace

std::vector<int> stopSignals() {
  std::vector<int> signals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  std::erase_if(signals, isIgnored);
  return signals;
}

}  // namespace runlet_tool
