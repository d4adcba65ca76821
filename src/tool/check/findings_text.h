// How findings are told.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tool/check/finding.h"

namespace runlet_tool {

// For people: two lines a finding, and one for each rule of which some are left out. `shownFile` is
// put before every place as it is: the caller has made the name of the job file fit to be shown.
std::string findingsText(const std::string& shownFile, const Report& report, bool hasColour);

// "job.xml: 12 tasks, 1 error, 2 warnings\n", with the name likewise.
std::string summaryText(const std::string& shownFile, const Report& report);

// For programs: the object of one job, as runlet-job(1) describes it.
nlohmann::ordered_json findingsJson(const std::string& jobFile, const Report& report);

}  // namespace runlet_tool
