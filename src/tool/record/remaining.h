// Which tasks of a batch have still to succeed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "tool/record/record.h"

namespace runlet_tool {

// What the attempt ran.
const TaskIdentity& identityOf(const Record& record, const Attempt& attempt);

// The tasks of a batch as its job has them now. A task is known by what it runs, not by its number:
// where the job has changed, a success counts for the task that has the same identity now.
struct Remaining {
  std::vector<std::int32_t> tasks;    // of the batch, ascending
  std::vector<std::int32_t> toRun;    // those of `tasks` that have not succeeded
  std::vector<std::int32_t> changed;  // those of `tasks` that the batch did not have so far
  std::size_t gone = 0;               // how many tasks of the batch the job no longer has
};

// `job` has the identities of all tasks of the job, in order. If the last session had all tasks of
// the job, the batch is all tasks that the job has now. Otherwise, it is the tasks that run the
// same as those of that session: as many of them, first those with the same number, then those with
// the lowest numbers; and for each that the job no longer has, the task that has its number now.
// Likewise, of tasks that run the same, a success counts for the one that had it.
Remaining remainingOf(const Record& record, const std::vector<TaskIdentity>& job);

struct FailedTasks {
  std::vector<std::int32_t> tasks;  // of the job, ascending
  std::size_t gone = 0;             // how many more have failed that the job no longer has
};

// The tasks that have failed in the batch as its last session had it. An attempt has failed if it
// was the last one of something as a task of that number, and has not succeeded: it failed, was
// interrupted or cut off, or could not be started. Of tasks that run the same, as many count as
// attempts have failed, but no more than still lack a success: first those with the numbers of
// these attempts, then those with the lowest numbers.
FailedTasks failedOf(const Record& record, const std::vector<TaskIdentity>& job);

// For each task of the last session, the position of the attempt that counts for it, if there is
// one: the last one of what it runs as a task of that number, unless that has not succeeded and
// another attempt of the same has. Each attempt counts for one task.
std::vector<std::optional<std::size_t>> countingAttempts(const Record& record);

// The greatest number of an attempt with each task number.
std::map<std::int32_t, std::int32_t> lastAttempts(const Record& record);

}  // namespace runlet_tool
