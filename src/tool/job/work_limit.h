// How much work the tasks of a job may make.
#pragma once

#include <cstddef>
#include <cstdint>

#include "adapter/context.h"
#include "tool/job/preview.h"

namespace runlet_tool {

// The tasks of a small file can take very long: the template is expanded for each of them, and each
// of many placeholders may look through a long entry. So the work is counted, in units of about a
// nanosecond, and limited. The limit is forAnyJob plus forEachByte for each byte of the file. A
// usual task takes about a hundred units for each byte that it has in the file.
class WorkLimit {
 public:
  static constexpr std::size_t forAnyJob = 150'000'000;
  static constexpr std::size_t forEachByte = 250;

  WorkLimit() = default;  // no limit
  explicit WorkLimit(std::size_t fileSize) : left_(forAnyJob + forEachByte * fileSize) {}

  // Of a preview, of the task at `index`, that is to be looked at.
  void addPreview(const Preview& preview, const runlet::AdapterContext& context,
                  std::int32_t index);

  // Of writing what it tells, in one form or the other.
  void addOutput(const Preview& preview);

  // Of looking a finding up.
  void addLookUp() {
    add(200);
  }

  // Of looking for a program of the machine.
  void addProgram(std::size_t pathLength) {
    add(50'000 + 1000 * pathLength);
  }

  bool isSpent() const {
    return left_ == 0;
  }

 private:
  void add(std::size_t work) {
    left_ -= work < left_ ? work : left_;
  }

  std::size_t left_ = SIZE_MAX;
};

}  // namespace runlet_tool
