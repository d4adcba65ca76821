// The engine, as its own programs give access to it: sbatch, squeue, sacct, scontrol and scancel.
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

// One more than the highest number that an element may have; the engine's default where it does
// not tell.
std::int64_t askMaxArraySize();

struct Submission {
  std::optional<ArrayId> id;  // as far as sbatch has told one
  bool isSound = false;       // whether sbatch has done all that it was to do
};

// Submits an array. What sbatch writes to standard error is passed on. A message says why a
// submission is not sound; an array with an id may be queued then and is to be cancelled, and
// where there may be one whose id is not known, the message says how to find it.
Submission submitArray(const SbatchCommand& command);

// Ends an array. False, after a message, when that was not possible.
bool cancelArray(const ArrayId& array);

// Add to `*states` what the engine knows about the elements of arrays of one cluster: all it has
// not yet forgotten, and out of its accounts those that are not in `*states` yet. An engine that
// keeps no accounts knows none there. Empty, or in one line why the engine does not answer.
std::string askQueue(const std::vector<ArrayId>& arrays, ElementStates* states);
std::string askAccounts(const std::vector<ArrayId>& arrays, ElementStates* states);

// Finds out what the array tells about itself. Empty, or in one line why that is not known.
std::string askOrigin(const ArrayId& array, ArrayOrigin* origin);

}  // namespace runlet_tool
