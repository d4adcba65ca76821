// A job file from the options of make.
#pragma once

#include <string>

#include "tool/check/finding.h"
#include "tool/make/complaint.h"
#include "tool/make/job_options.h"

namespace runlet_tool {

struct MadeJob {
  std::string text;
  Report report;  // what check finds in it
};

// Puts the job file that the options ask for into `*made`. False where there is none, and, with the
// findings, where check finds an error in it. The findings are about a file called `name`.
bool makeJob(const MakeOptions& options, const std::string& name, MadeJob* made,
             Complaint* complaint);

}  // namespace runlet_tool
