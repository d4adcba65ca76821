// Which tasks of a batch have still to succeed.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tool/record/record.h"

namespace runlet_tool {

// The tasks of a batch as its job has them now. A task is known by what it runs, not by its number:
// where the job has changed, a success counts for the task that has the same identity now.
struct Remaining {
  std::vector<std::int32_t> tasks;    // of the batch, ascending
  std::vector<std::int32_t> toRun;    // those of them that have not succeeded
  std::vector<std::int32_t> changed;  // those of them that the batch did not have so far
  std::size_t gone = 0;               // how many tasks of the batch the job no longer has
};

// `job` has the identities of all tasks of the job, in order. The tasks of the batch are those of
// its last session: all of the job, if that session had all, else those with the same numbers.
Remaining remainingOf(const Record& record, const std::vector<TaskIdentity>& job);

// The tasks, ascending, whose last attempt in the record did not succeed, although it began or
// could not be started.
std::vector<std::int32_t> failedOf(const Record& record, const std::vector<TaskIdentity>& job);

// The greatest number of an attempt with each task number.
std::map<std::int32_t, std::int32_t> lastAttempts(const Record& record);

}  // namespace runlet_tool
