// Finding what is wrong with a job before it runs.
#pragma once

#include <string>

#include "adapter/context.h"
#include "tool/check/report.h"
#include "tool/job/range.h"

namespace runlet_tool {

// A request for all tasks of a job, with what the server would give.
struct Question {
  std::string jobFile;           // -j, exactly as given
  std::string appPath;           // -a; empty = not given
  std::string userName;          // -u; empty = not given
  bool isOfHost = false;         // whether to look at this machine's folders, programs and users
  bool wantsAll = false;         // whether to keep more than `mostFindings` findings of a rule
  bool looksAtAllTasks = false;  // whether to look at all, however long it takes
  RangeOptions range = {};       // tasks to look at in any case; empty = none
};

// The most findings of a rule that are kept; further ones are counted: a job file can have as many
// findings as it has elements or placeholders.
inline constexpr std::size_t mostFindings = 20;

// Takes time and memory in proportion to the size of the file: where the tasks together would take
// more, those beyond are left alone, which is a finding (RuleId::tasksNotChecked), unless they are
// to be looked at in any case.
//
// Nothing is run and nothing changed. Without an error among the findings the adapter starts every
// task that was looked at; with one it does not start all, unless that is an error for its danger
// alone (see isOfDanger).
//
// `*job`, where it is given, becomes the job as it was inspected, with the paths and the user of
// the question. Without an error among the findings that is a job as `loadJob` loads it.
Report inspect(const Question& question, runlet::AdapterContext* job = nullptr);

}  // namespace runlet_tool
