// A job file from the options of make.
#pragma once

#include <string>

#include "tool/make/complaint.h"
#include "tool/make/job_options.h"

namespace runlet_tool {

// Puts the text of the job file that the options ask for into `*text`. False where there is none,
// or where its tasks would not all be started as asked.
bool makeJob(const MakeOptions& options, std::string* text, Complaint* complaint);

}  // namespace runlet_tool
