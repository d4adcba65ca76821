// How a batch becomes arrays of Slurm, and what an array tells about itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

// Which tasks the elements of an array are: element e holds `chunk` tasks from `base` + e * `chunk`
// on, as far as they are not above `last`.
struct ArrayLayout {
  std::int32_t base = 0;
  std::int32_t chunk = 1;
  std::int32_t last = 0;

  bool operator==(const ArrayLayout&) const = default;
};

// Numbers of tasks, both included.
struct TaskSpan {
  std::int64_t first;
  std::int64_t last;
};

TaskSpan tasksOf(const ArrayLayout& layout, std::int32_t element);

// One array.
struct ArrayPart {
  ArrayLayout layout;
  std::vector<std::int32_t> elements;  // ascending, at least one
  std::string number;  // what stands in front of an element's digits in the names of logs
  int digits = 0;      // of an element there; with 0 it does not appear

  bool operator==(const ArrayPart&) const = default;
};

// "0-7,9", as the engine takes it.
std::string elementsText(const std::vector<std::int32_t>& elements);

// The arrays for `tasks` (ascending, at least one) of a job that has `taskCount`. With a `chunk`
// above 1 they have to be without a gap, and an element is `chunk` of them; its number in the names
// of logs counts chunks of the whole job, from 0. No element is as high as `maxArraySize`, and no
// array takes a longer text than the engine reads. The digits in the names of logs are the same
// however many arrays there are.
std::vector<ArrayPart> planArrays(const std::vector<std::int32_t>& tasks, std::size_t taskCount,
                                  std::int32_t chunk, std::int64_t maxArraySize);

// The path of an element's log is `folder` + "/" + its name, where chunk logs are named so.
std::string chunkLogName(const std::string& jobName, const ArrayLayout& layout,
                         std::int32_t element, std::size_t taskCount);

struct ArrayOrigin {
  ArrayLayout layout;
  std::size_t elementCount = 0;
  std::string job;  // stands for the job file, see jobHash

  bool operator==(const ArrayOrigin&) const = default;
};

// 16 digits for the job file's full path; hardly ever the same for two.
std::string jobHash(std::string_view jobFile);

// "runlet-job:BASE:CHUNK:LAST:ELEMENTS:HASH", where ELEMENTS is how many the array has.
std::string commentText(const ArrayOrigin& origin);

// What `text` begins with; nothing if it is not a comment of that form.
std::optional<ArrayOrigin> readComment(std::string_view text);

}  // namespace runlet_tool
