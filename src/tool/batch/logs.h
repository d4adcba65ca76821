// Where the tasks' outputs go.
#pragma once

#include <cstdint>
#include <string>

#include "tool/batch/batch.h"

namespace runlet_tool {

// How many digits the numbers of the job's tasks have in the names of logs.
int logDigits(const Batch& batch);

// Path of the task's log.
std::string logPath(const Batch& batch, std::int32_t task);

// Makes the log folder, with the folders above it, as the user that the tasks run as, where it is
// not there yet. Who may enter them is up to the job's mask; nobody but that user may write to
// them. False, with a message on standard error, when it cannot be made.
bool makeLogFolder(const Batch& batch, const char* verb);

// Makes the task's log and opens it for writing, as the user that the tasks run as. What has its
// name is removed before. Who may read it is up to the job's mask; nobody but that user may write
// to it. -1, with the reason in errno, when it cannot be made. The descriptor closes on exec.
int openLog(const Batch& batch, std::int32_t task);

}  // namespace runlet_tool
