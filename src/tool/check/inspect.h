// Finding what is wrong with a job before it runs.
#pragma once

#include <string>

#include "adapter/context.h"
#include "tool/check/report.h"
#include "tool/job/range.h"

namespace runlet_tool {

// A request for all tasks of a job, with the values that the server would pass.
struct Question {
  std::string jobFile;           // -j, exactly as given
  std::string appPath;           // -a; empty = not given
  std::string userName;          // -u; empty = not given
  bool isOfHost = false;         // whether to check this machine's folders, programs and users
  bool wantsAll = false;         // whether to keep more than `mostFindings` per rule
  bool looksAtAllTasks = false;  // whether to check all tasks, however long it takes
  RangeOptions range = {};       // tasks to check in any case; empty = none
};

// The most findings of a rule that are kept; further ones are only counted, since a job file can
// have as many findings as it has elements or placeholders.
inline constexpr std::size_t mostFindings = 20;

// Takes time and memory in proportion to the size of the file. If the tasks would take more, the
// remaining ones are not checked, which is a finding (RuleId::tasksNotChecked), except those that
// must be checked in any case.
//
// Nothing is run or changed. If no finding is an error, the adapter starts every task that was
// checked. If one is, it does not start all of them, unless the only errors are reported for their
// danger (see isOfDanger).
//
// If `job` is not null, `*job` becomes the job as it was inspected, with the paths and the user of
// the question. If no finding is an error, it is the job as `loadJob` loads it.
Report inspect(const Question& question, runlet::AdapterContext* job = nullptr);

}  // namespace runlet_tool
