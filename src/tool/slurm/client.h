// Access to Slurm through its programs: sbatch, squeue, sacct, scontrol and scancel.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool/slurm/answers.h"
#include "tool/slurm/arrays.h"
#include "tool/slurm/sbatch.h"

namespace runlet_tool {

// Writes "runlet-job: submit: TEXT" to standard error.
void saySubmit(const std::string& text);

// One more than the highest element number; Slurm's default if it cannot be queried.
std::int64_t askMaxArraySize();

struct Submission {
  std::optional<ArrayId> id;  // if sbatch has printed one
  bool isSound = false;       // whether sbatch succeeded and printed an id
};

// Submits an array and passes on what sbatch writes to standard error. A message says why a
// submission is not sound. An array with an id may be queued nevertheless, and the caller should
// cancel it; if an array may be queued whose id is unknown, the message says how to find it.
Submission submitArray(const SbatchCommand& command);

// Cancels an array. False, after a message, if that fails.
bool cancelArray(const ArrayId& array);

// Add to `*states` what Slurm knows about the elements of arrays of one cluster: askQueue those
// still in the queue, askAccounts those in the accounting records that are not yet in `*states`. A
// cluster without accounting has no such records. Return an empty text, or in one line why Slurm
// does not answer.
std::string askQueue(const std::vector<ArrayId>& arrays, ElementStates* states);
std::string askAccounts(const std::vector<ArrayId>& arrays, ElementStates* states);

// Reads the comment of the array. Returns an empty text, or in one line why that fails.
std::string askOrigin(const ArrayId& array, ArrayOrigin* origin);

}  // namespace runlet_tool
