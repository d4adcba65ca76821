// What `check` finds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tool/check/rules.h"
#include "tool/text/task_numbers.h"

namespace runlet_tool {

// In the file: line and column from 1, columns in characters. 0 and 0: no place in the file.
struct Place {
  int line = 0;
  int column = 0;
};

struct Finding {
  const Rule* rule;
  Place place;
  std::string text;     // the offending text; may be empty
  std::string why;      // one sentence
  std::string instead;  // one sentence
  TaskNumbers tasks;    // that it holds for; none when it is not about tasks
};

struct Report {
  std::vector<Finding> findings;  // by place; those without a place last
  // How many more there are of a rule of which not all are kept.
  std::map<RuleId, std::size_t> leftOut;
  std::int32_t taskCount = 0;  // of the job, as far as it was read
  bool isReadable = true;      // false: the file could not be read, or is not XML

  // With those that are left out.
  std::size_t count(Severity severity) const;
};

}  // namespace runlet_tool
