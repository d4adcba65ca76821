// A limit on the work for the tasks of a job.
#pragma once

#include <cstddef>
#include <cstdint>

#include "adapter/context.h"
#include "tool/job/preview.h"

namespace runlet_tool {

// The tasks of a small file can take very long: the template is expanded for each of them, and each
// of many placeholders may scan a long entry. So the work is counted, in units of about a
// nanosecond, and limited to forAnyJob plus forEachByte for each byte of the file. A typical task
// takes about a hundred units for each of its bytes in the file.
class WorkLimit {
 public:
  static constexpr std::size_t forAnyJob = 150'000'000;
  static constexpr std::size_t forEachByte = 250;

  WorkLimit() = default;  // no limit
  explicit WorkLimit(std::size_t fileSize) : left_(forAnyJob + forEachByte * fileSize) {}

  // For computing and checking the preview of the task at `index`.
  void addPreview(const Preview& preview, const runlet::AdapterContext& context,
                  std::int32_t index);

  // For printing the preview, as text or JSON.
  void addOutput(const Preview& preview);

  // For looking up a finding.
  void addLookUp() {
    add(200);
  }

  // For searching for a program on this machine.
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
