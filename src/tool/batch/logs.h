// The log files of tasks.
//
// Unless the log folder may be shared, it must belong to the user that the tasks run as and be
// closed to others: see openOwnFolder. The logs are used through it alone, never by their paths, as
// others may be able to exchange it for something else.
#pragma once

#include <cstdint>
#include <string>

#include "tool/batch/batch.h"

namespace runlet_tool {

// The number of digits of task numbers in the names of the job's logs.
int logDigits(const Batch& batch);

// The path of the task's log. Attempts after the first have logs of their own.
std::string logPath(const Batch& batch, std::int32_t task, std::int32_t attempt = 1);

// Creates the log folder and its parents, if missing, as the user that the tasks run as. The job's
// mask decides who may enter them; only that user may write to them. False, after a message on
// standard error, if that fails or the folder is not of the batch's kind: then with the reason that
// openOwnFolder gives.
bool makeLogFolder(const Batch& batch, const char* verb);

// Creates the task's log and opens it for writing, as the user that the tasks run as. An existing
// file of that name is removed first. The job's mask decides who may read the log; only that user
// may write to it. Returns -1, with the reason in errno, on failure. The descriptor closes on exec.
int openLog(const Batch& batch, std::int32_t task, std::int32_t attempt = 1);

// Removes the task's log as the user that the tasks run as. Returns 0, or the error number.
int removeLog(const Batch& batch, std::int32_t task, std::int32_t attempt);

// Removes the log folder, as that user, unless there is anything in it.
void removeEmptyLogFolder(const Batch& batch);

// Whether the disk of the log folder has so little space left that what a task writes may be lost.
// A quota is not noticed.
bool isDiskFull(const Batch& batch);

}  // namespace runlet_tool
