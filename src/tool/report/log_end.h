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

// Reads at most the last 4 KiB of the log of an attempt of `record`, unless the record is not to be
// trusted. For root, with only the rights of the user and group that the task ran as: that user may
// have replaced the log's folder by a link. The log itself must not be a link, and nothing but a
// regular file is opened. A file system that does not respond costs at most half a minute.
LogEnd readLogEnd(const Record& record, const Attempt& attempt, std::size_t mostLines);

}  // namespace runlet_tool
