// The findings of `check`, and their output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tool/check/rules.h"
#include "tool/text/format.h"

namespace runlet_tool {

// A place in the file: line and column from 1, columns in characters. Both 0 = no place.
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
  TaskNumbers tasks;    // that have it; none if it is not about tasks
};

struct Report {
  std::vector<Finding> findings;  // sorted by place; those without a place last
  // The number of findings that are not kept, for each rule that has any.
  std::map<RuleId, std::size_t> leftOut;
  std::int32_t taskCount = 0;  // number of tasks read from the job
  bool isReadable = true;      // false = the file cannot be read, or is not XML

  // The number of findings of that severity, including those that are left out.
  std::size_t count(Severity severity) const;
};

// For people: two lines for each finding, and one for each rule with findings that are left out.
// `shownFile` is the name of the job file, already escaped for display.
std::string findingsText(const std::string& shownFile, const Report& report, bool hasColour);

// "job.xml: 12 tasks, 1 error, 2 warnings\n", with the name already escaped.
std::string summaryText(const std::string& shownFile, const Report& report);

// For programs: the object of one job, as documented in runlet-job(1).
nlohmann::ordered_json findingsJson(const std::string& jobFile, const Report& report);

}  // namespace runlet_tool
