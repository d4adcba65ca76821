// How a batch is divided into Slurm job arrays, and what the comment of an array says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

// Which tasks the elements of an array run: element e runs `chunk` tasks starting at `base` + e *
// `chunk`, but none above `last`.
struct ArrayLayout {
  std::int32_t base = 0;
  std::int32_t chunk = 1;
  std::int32_t last = 0;

  bool operator==(const ArrayLayout&) const = default;
};

// Task numbers, both inclusive.
struct TaskSpan {
  std::int64_t first;
  std::int64_t last;
};

TaskSpan tasksOf(const ArrayLayout& layout, std::int32_t element);

// One array.
struct ArrayPart {
  ArrayLayout layout;
  std::vector<std::int32_t> elements;  // ascending, at least one
  std::string number;                  // what precedes an element's digits in the names of logs
  int digits = 0;                      // of an element in those names; 0 = it does not appear

  bool operator==(const ArrayPart&) const = default;
};

// "0-7,9", as sbatch --array takes it.
std::string elementsText(const std::vector<std::int32_t>& elements);

// The arrays for `tasks` (ascending, at least one) of a job that has `taskCount` tasks. With a
// `chunk` above 1 the tasks must be contiguous, and an element runs `chunk` of them; its number in
// the names of logs counts chunks of the whole job, from 0. Every element is below `maxArraySize`,
// and no array has a longer text than Slurm accepts. The digits in the names of logs do not depend
// on the number of arrays.
std::vector<ArrayPart> planArrays(const std::vector<std::int32_t>& tasks, std::size_t taskCount,
                                  std::int32_t chunk, std::int64_t maxArraySize);

// The file name of an element's log where elements run chunks.
std::string chunkLogName(const std::string& jobName, const ArrayLayout& layout,
                         std::int32_t element, std::size_t taskCount);

struct ArrayOrigin {
  ArrayLayout layout;
  std::size_t elementCount = 0;
  std::string job;  // jobHash of the job file

  bool operator==(const ArrayOrigin&) const = default;
};

// A hash of the job file's full path, in 16 hexadecimal digits.
std::string jobHash(std::string_view jobFile);

// "runlet-job:BASE:CHUNK:LAST:ELEMENTS:HASH", where ELEMENTS is the number of elements.
std::string commentText(const ArrayOrigin& origin);

// Parses the start of `text`; no value if it is not a comment of that form.
std::optional<ArrayOrigin> readComment(std::string_view text);

}  // namespace runlet_tool
