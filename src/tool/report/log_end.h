// The last lines of a task's log.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tool/record/record.h"

namespace runlet_tool {

struct LogEnd {
  // Why there are no lines: "cannot be read: No such file or directory", or "not read: " and the
  // record's `distrust`. Empty if the log was read.
  std::string note;
  // Safe to print, without newlines, at most 200 bytes of each and "...".
  std::vector<std::string> lines;
};

// Reads at most the last 4 KiB of each log of these attempts, given by their positions in `record`,
// unless the record is not to be trusted. For root, with only the rights of the user and group that
// the tasks ran as: that user may have replaced the logs' folder by a link. The folder of a log
// must be that user's and closed to others, and no link: see openOwnFolder. A log itself must not
// be a link, and nothing but a regular file is opened. Parallel to `attempts`.
//
// A file system of that user that does not respond costs at most half a minute for each session.
std::vector<LogEnd> readLogEnds(const Record& record, const std::vector<std::size_t>& attempts,
                                std::size_t mostLines);

}  // namespace runlet_tool
