// An independent implementation of the adapter's functions, for tests only: simple, slow, and
// written from the promises rather than from the code that it is compared with. It uses none of the
// adapter's code.
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

// The result of an operation: `text` holds its text if it succeeded. The other results are
// exceptions of that type.
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

// The text between the braces of `text`: in a string, and in a buffer of 256 bytes, which is empty
// on failure.
Result stripBrace(const std::string& text);
std::optional<std::string> stripBraceIntoArea(const std::string& text);

// The argument vector of a command line.
std::vector<std::string> words(const std::string& line);

// The value of a numeric option or element of the job file.
std::int32_t number(const std::string& text);

// Whether the task at `index` (0-based) is in the range, and whether a task has run too long
// (`elapsed` in milliseconds, `limit` in minutes).
bool isInRange(std::int32_t firstTask, std::int32_t taskCount, std::int32_t index);
bool isTimedOut(std::int32_t elapsed, std::int32_t limit);

}  // namespace runlet_model
