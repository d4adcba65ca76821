// How many processors there are to use.
#pragma once

#include <cstdint>
#include <string>

namespace runlet_tool {

// The processors that this process may use: those it may be scheduled on, but not more than the CPU
// quota of its control group and of those above allows, rounded up. At least 1. `root` is the
// folder in which /proc and /sys are looked up.
std::int32_t usableProcessors(const std::string& root = "");

}  // namespace runlet_tool
