// What `check` finds, and how it is reported.
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

// For people: two lines a finding, and one for each rule of which some are left out. `shownFile` is
// put before every place as it is: the caller has made the name of the job file fit to be shown.
std::string findingsText(const std::string& shownFile, const Report& report, bool hasColour);

// "job.xml: 12 tasks, 1 error, 2 warnings\n", with the name likewise.
std::string summaryText(const std::string& shownFile, const Report& report);

// For programs: the object of one job, as runlet-job(1) describes it.
nlohmann::ordered_json findingsJson(const std::string& jobFile, const Report& report);

}  // namespace runlet_tool
