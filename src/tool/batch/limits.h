// The limits of a run on its command line.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace runlet_tool {

// A time such as "90s", "5m", "2h" or "1d": at least a second, at most 68 years. No value if the
// text is not one.
std::optional<std::chrono::milliseconds> parseTime(std::string_view text);

// The value of --halt.
struct HaltOption {
  bool isNow = false;        // whether running tasks are ended, too
  std::size_t failures = 1;  // how many tasks must have failed
  bool isPercentage = false;
};

// "soon" or "now", alone or followed by ",fail=N" or ",fail=N%". No value if the text is something
// else.
std::optional<HaltOption> parseHalt(std::string_view text);

// How many of `count` tasks must have failed.
std::size_t failuresOf(const HaltOption& option, std::size_t count);

// What is wrong with the value of an option; empty if nothing is.
std::string complaintAboutTime(const std::string& text);
std::string complaintAboutHalt(const std::string& text);

}  // namespace runlet_tool
