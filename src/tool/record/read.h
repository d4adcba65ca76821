// Reading a batch record.
#pragma once

#include <string>

#include "tool/record/record.h"

namespace runlet_tool {

// Reads the record in the file `path`, which may be growing. An incomplete line, such as the last
// one of a writer that was killed, is ignored, and so is a session that was killed before it had
// recorded its tasks, unless it is the only one: see Session::isPlanned. Of a file that is none, at
// most the first line is read, or 64 MiB of it, and what is no regular file is not opened.
//
// Returns why the file is no record of this version, as a sentence without the file's name; empty
// on success. The texts in `*record` are those of the file: any bytes, to be shown with `visible`.
// After a failure, the content of `*record` is unspecified.
std::string readRecord(const std::string& path, Record* record);

// The path of the job that the last session of the record in the file `path` has run; empty if it
// is no record. Looks only at the lines of sessions.
std::string jobOfRecord(const std::string& path);

// As Record::distrust, also for a file that is no record, or why nothing is known about it.
std::string distrustOfFile(const std::string& path);

}  // namespace runlet_tool
