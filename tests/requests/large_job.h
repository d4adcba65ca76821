// Large but plausible jobs: lists of every length, with texts of every length. The job file is
// generated from the lists, so that its content is known without reading it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "model.h"
#include "random.h"

namespace runlet_model {

// File sizes at which the code, the libraries or the system change behaviour.
inline constexpr std::size_t sizeThresholds[] = {4 << 10,   16 << 10,  32 << 10, 64 << 10,
                                                 128 << 10, 256 << 10, 1 << 20};

// The kinds of texts in a list. Each has lengths of every remainder modulo 16.
enum class TextKind {
  brief,    // 1 to 64 bytes
  mixed,    // mostly brief, some of up to 600 bytes, some as in `borders`
  lengthy,  // 200 to 6000 bytes
  borders,  // around every length at which behaviour changes, up to 4 KiB
};

struct LargeShape {
  std::size_t fileSize;  // of the job file; the lists may need more
  TextKind tasks = TextKind::brief;
  TextKind values = TextKind::brief;
  std::size_t minTasks = 1;
  std::size_t maxTasks = 100000;
  std::size_t parameters = 0;
  std::size_t lastLength = 55;  // of the last task and the last value
  bool isClean = false;         // without findings of runlet-job check
};

struct LargeJob {
  std::size_t fileSize = 0;  // at least; padded with white space at the end
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::string folder;
  Lists lists;
  std::size_t layout = 0;  // how the file is written
};

// Random numbers for one job of a test.
Random startOf(const std::string& testName, std::uint64_t seed, std::uint64_t number);

// From 4 kB to 2 MB, distributed logarithmically.
std::size_t anyFileSize(Random* random);

// A job without folder, user and group.
LargeJob makeLargeJob(Random* random, const LargeShape& shape);

// A text that differs from those with other numbers, and at each position from a shifted copy.
std::string numberedText(std::size_t number, std::size_t length);

// One text of `length` bytes, and `count` of 55 bytes each.
std::vector<std::string> evenTexts(std::size_t length, std::size_t count);

// The job file with the template `pattern`.
std::string fileOf(const LargeJob& job, const std::string& pattern);

// Templates with the task's number and fields, which together use all parameters, as many in each
// as fit into an expansion. They all run `program`.
std::vector<std::string> patternsFor(const LargeJob& job, const std::string& program);

}  // namespace runlet_model
