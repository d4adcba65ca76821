// A job file from the options of make.
#pragma once

#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/check/report.h"
#include "tool/make/complaint.h"
#include "tool/make/options.h"

namespace runlet_tool {

// The job file whose load fills the job fields and lists of a context as those of `job` are, but
// for the `arguments`, which become `argumentTemplate`. They hold only what a job file can carry:
// see xmlObstacle, taskObstacle and escapeAlone. There is an element for every number, and one for
// every text that is not empty.
std::string jobText(const runlet::AdapterContext& job, const std::string& argumentTemplate);

// Whether the job file at `path` is loaded as `meant`, except for the template, and each of its
// tasks then has exactly the `words` of the command, expanded, for an argument vector. A single
// word is a template by itself, which may come to any number of words.
//
// `meant` has the words for its `arguments`, with a space in between.
bool arrivesAsMeant(const std::string& path, const runlet::AdapterContext& meant,
                    const std::vector<std::string>& words, Complaint* complaint);

struct MadeJob {
  std::string text;
  Report report;  // what check finds in it
};

// Puts the job file that the options ask for into `*made`. False where there is none, and, with the
// findings, where check finds an error in it. The findings are about a file called `name`.
bool makeJob(const MakeOptions& options, const std::string& name, MadeJob* made,
             Complaint* complaint);

}  // namespace runlet_tool
