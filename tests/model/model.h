// A second telling of what the adapter's functions come to, for the tests alone: simple, slow, and
// written from the promises rather than from the code it is compared with. It uses nothing of
// the adapter.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace runlet_model {

// The lists that a job file fills.
struct Lists {
  std::vector<std::string> taskList;
  std::vector<std::string> paramNames;
  std::vector<std::string> paramValues;
};

// What an operation came to: `text` holds its text if it is done. An out-of-range or a length
// error would have left the function.
enum class Outcome { done, failed, outOfRange, lengthError };
struct Result {
  Outcome outcome;
  std::string text;
};

bool operator==(const Result& left, const Result& right);

// The expansion of `pattern` for the task at `taskIndex` (0-based).
Result fillIn(const Lists& lists, const std::string& pattern, std::int32_t taskIndex);

// The lookups, which never fail but may be out of range.
Result taskField(const Lists& lists, std::int32_t taskIndex, std::int32_t fieldNumber);
Result jobParam(const Lists& lists, std::int32_t paramNumber);

// What stands between the braces of `text`: into a string, and into an area of 256 bytes, which
// has nothing if that fails.
Result stripBrace(const std::string& text);
std::optional<std::string> stripBraceIntoArea(const std::string& text);

// The argument vector that a command line gives.
std::vector<std::string> words(const std::string& line);

// The number that a text gives as an option or an element of the job file.
std::int32_t number(const std::string& text);

// Whether the task at `index` (0-based) is one of the range, and whether a task has run for too
// long (`elapsed` in milliseconds, `limit` in minutes).
bool isInRange(std::int32_t firstTask, std::int32_t taskCount, std::int32_t index);
bool isTimedOut(std::int32_t elapsed, std::int32_t limit);

}  // namespace runlet_model
