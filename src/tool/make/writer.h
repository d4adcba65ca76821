// Writing a job file from the options of make.
#pragma once

#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/check/report.h"
#include "tool/make/complaint.h"
#include "tool/make/options.h"

namespace runlet_tool {

// The job file that loads as the job fields and lists of `job`, except that `arguments` become
// `argumentTemplate`. All texts must be representable in a job file: see xmlObstacle, taskObstacle
// and escapeAlone. Every number and every non-empty text has an element.
std::string jobText(const runlet::AdapterContext& job, const std::string& argumentTemplate);

// Whether the job file at `path` loads as `meant`, except for the template, and the argument vector
// of each task is exactly the expanded `words` of the command. A single word is a template, which
// may expand to any number of words.
//
// The `arguments` of `meant` are the words, separated by spaces.
bool arrivesAsMeant(const std::string& path, const runlet::AdapterContext& meant,
                    const std::vector<std::string>& words, Complaint* complaint);

struct MadeJob {
  std::string text;
  Report report;  // the findings of check
};

// Stores the job file described by the options in `*made`. False if there is none, or, with the
// findings, if check finds an error in it. The findings name the file `name`.
bool makeJob(const MakeOptions& options, const std::string& name, MadeJob* made,
             Complaint* complaint);

}  // namespace runlet_tool
