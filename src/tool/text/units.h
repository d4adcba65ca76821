// Durations, points in time and sizes in words, and texts that fit a line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

// "0 s", "12 ms", "1.2 s", "42 s", "4 min 12 s", "1 h 5 min", "2 d 3 h". `seconds` is from 0 to
// 1e12.
std::string durationText(double seconds);

// The smallest step that durationText shows for durations of about that many seconds, in seconds.
double durationStep(double seconds);

// Now, in seconds since 1970 in UTC, with a fraction.
double presentTime();

// "2026-11-22 21:15:30 CET", in the time zone of the caller. `time` is in seconds since 1970, from
// 0 to the end of the year 9999.
std::string timeText(double time);

// "12 bytes", "1.5 MiB".
std::string sizeText(std::int64_t bytes);

// `text` if it has at most `most` bytes; otherwise its start, not cut within a character, and
// "...".
std::string shortened(std::string_view text, std::size_t most);

// The command line of these words, safe to print, as from `shortened`.
std::string commandText(const std::vector<std::string>& words, std::size_t most);

}  // namespace runlet_tool
