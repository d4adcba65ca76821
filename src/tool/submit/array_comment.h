// What an array tells about itself, for a later look at what has become of its tasks.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tool/submit/array_plan.h"

namespace runlet_tool {

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
