// The last lines of a task's log.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace runlet_tool {

struct LogEnd {
  std::string error;  // why there are no lines; empty if the log could be read
  // Safe to print, without newlines, at most 200 bytes of each and "...".
  std::vector<std::string> lines;
};

// Reads at most the last 4 KiB of the file at `path`, with the rights of this process. A link is
// not followed, and only a regular file is read. Never waits for another process.
LogEnd readLogEnd(const std::string& path, std::size_t mostLines);

}  // namespace runlet_tool
