// Finding what is wrong with a job before it runs.
#pragma once

#include <string>

#include "adapter/context.h"
#include "tool/check/finding.h"

namespace runlet_tool {

// A request for all tasks of a job, with what the server would give.
struct Question {
  std::string jobFile;    // -j, exactly as given
  std::string appPath;    // -a; empty = not given
  std::string userName;   // -u; empty = not given
  bool isOfHost = false;  // whether to look at this machine's folders, programs and users
};

// Nothing is run and nothing changed. Without an error among the findings the adapter starts every
// task; with one it does not (but see RuleId::shellInChmod).
//
// `*job`, where it is given, becomes the job as it was inspected, with the paths and the user of
// the question. Without an error among the findings that is a job as `loadJob` loads it.
Report inspect(const Question& question, runlet::AdapterContext* job = nullptr);

}  // namespace runlet_tool
