// The expansion of a template. The input is the task's index (a signed byte) and the number of
// parameter names (a byte), then the template, the task's entry and the parameter values, separated
// by NULs.

#include <algorithm>
#include <stdexcept>

#include "fuzz.h"
#include "job/fill_in.h"
#include "model.h"

namespace {

using runlet_fuzz::require;
using runlet_model::Outcome;
using runlet_model::Result;

constexpr std::size_t valueCount = 5;
constexpr std::int32_t taskCount = 100;
constexpr char unchanged[] = "as it was";

Result expand(const runlet::AdapterContext& context, const std::string& pattern,
              std::int32_t taskIndex) {
  std::string out = unchanged;
  try {
    if (fillInArguments(&context, &out, pattern.c_str(), taskIndex)) return {Outcome::done, out};
  } catch (const std::out_of_range&) {
    return {Outcome::outOfRange, ""};
  }
  require(out == unchanged, "a failed expansion leaves its output alone");
  return {Outcome::failed, ""};
}

}  // namespace

void runlet_fuzz::tryInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return;
  const std::int32_t taskIndex = data[0] < 128 ? data[0] : data[0] - 256;
  const std::vector<std::string> given = texts(data + 2, size - 2, 2 + valueCount);
  runlet_model::Lists lists;
  // The other entries do not matter, and the entry may be long.
  lists.taskList.assign(taskCount, "another");
  if (taskIndex >= 0 && taskIndex < taskCount) {
    lists.taskList[static_cast<std::size_t>(taskIndex)] = given[1];
  }
  lists.paramNames.assign(data[1] % (valueCount + 2), "name");
  lists.paramValues.assign(given.begin() + 2, given.end());

  runlet::AdapterContext context;
  context.taskList.assign(lists.taskList.begin(), lists.taskList.end());
  context.paramNames.assign(lists.paramNames.begin(), lists.paramNames.end());
  context.paramValues.assign(lists.paramValues.begin(), lists.paramValues.end());
  const Result expected = runlet_model::fillIn(lists, given[0], taskIndex);
  require(expand(context, given[0], taskIndex) == expected, "the model's expansion");
}
