// Which tasks of a batch have still to succeed.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tool/record/record.h"

namespace runlet_tool {

// What the attempt ran.
const TaskIdentity& identityOf(const Record& record, const Attempt& attempt);

// The tasks of a batch as its job has them now. A task is known by what it runs, not by its number:
// where the job has changed, a success counts for the task that has the same identity now.
struct Remaining {
  std::vector<std::int32_t> tasks;    // of the batch, ascending
  std::vector<std::int32_t> toRun;    // those of them that have not succeeded
  std::vector<std::int32_t> changed;  // those of them that the batch did not have so far
  std::size_t gone = 0;               // how many tasks of the batch the job no longer has
};

// `job` has the identities of all tasks of the job, in order. If the last session had all tasks of
// the job, the batch is all tasks that the job has now. Otherwise, it is the tasks that run the
// same as those of that session: as many of them, first those with the same number, then those with
// the lowest numbers. Likewise, of tasks that run the same, a success counts for the one that had
// it.
Remaining remainingOf(const Record& record, const std::vector<TaskIdentity>& job);

// The tasks of the job, ascending, that have failed in the batch as its last session had it: of
// tasks that run the same, as many as have not succeeded in any session, but at most as many as
// were tried in vain. A try was in vain if it was the last one of something as a task of that
// number, and has not succeeded: it failed, was interrupted or cut off, or could not be started.
// First come the tasks with these numbers, then those with the lowest ones.
std::vector<std::int32_t> failedOf(const Record& record, const std::vector<TaskIdentity>& job);

// The greatest number of an attempt with each task number.
std::map<std::int32_t, std::int32_t> lastAttempts(const Record& record);

}  // namespace runlet_tool
