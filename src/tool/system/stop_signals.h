// Signals that a user sends to stop the program.
#pragma once

#include <vector>

namespace runlet_tool {

// Those of SIGINT, SIGTERM, SIGHUP and SIGQUIT that are not ignored: who starts a program with
// nohup or in the background means that.
std::vector<int> stopSignals();

}  // namespace runlet_tool
