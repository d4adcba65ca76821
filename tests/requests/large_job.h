// Large but plausible jobs: lists of every length, with texts of every length. The lists are made
// first and the job file from them, so that nothing has to read the file to know what is in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "model.h"
#include "random.h"

namespace runlet_model {

// File sizes at which the code, the libraries or the system begin to do something else.
inline constexpr std::size_t sizeThresholds[] = {4 << 10,   16 << 10,  32 << 10, 64 << 10,
                                                 128 << 10, 256 << 10, 1 << 20};

// Which texts a list has. All kinds have lengths of every remainder modulo 16.
enum class TextKind {
  brief,    // 1 to 64 bytes
  mixed,    // mostly brief, some of up to 600 bytes, some as in `borders`
  lengthy,  // 200 to 6000 bytes
  borders,  // on both sides of every length at which something changes, up to 4 KiB
};

struct LargeShape {
  std::size_t fileSize;  // of the job file; the lists may need more
  TextKind tasks = TextKind::brief;
  TextKind values = TextKind::brief;
  std::size_t minTasks = 1;
  std::size_t maxTasks = 100000;
  std::size_t parameters = 0;
  std::size_t lastLength = 55;  // of the last task and the last value
  bool isClean = false;         // nothing that runlet-job check has something to say about
};

struct LargeJob {
  std::size_t fileSize = 0;  // at least; white space at the end makes up for what is missing
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::string folder;
  Lists lists;
  std::size_t layout = 0;  // how the file is written
};

// Random numbers for one job of a test.
Random startOf(const std::string& testName, std::uint64_t seed, std::uint64_t number);

// From 4 kB to 2 MB, each order of magnitude as often.
std::size_t anyFileSize(Random* random);

// A job without folder, user and group.
LargeJob makeLargeJob(Random* random, const LargeShape& shape);

// A text that differs from those with other numbers, and at each place from a shifted one.
std::string numberedText(std::size_t number, std::size_t length);

// One text of `length` bytes, and `count` of 55 bytes each.
std::vector<std::string> evenTexts(std::size_t length, std::size_t count);

// The job file with `pattern` for the template.
std::string fileOf(const LargeJob& job, const std::string& pattern);

// Templates that ask for the task's number and fields, and all parameters between them, as many in
// each as an expansion may hold. The program of all of them is `program`.
std::vector<std::string> patternsFor(const LargeJob& job, const std::string& program);

}  // namespace runlet_model
