// Files with a line of TAB-separated fields for each task.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "job/string_list.h"
#include "tool/make/complaint.h"
#include "xml/limits.h"

namespace runlet_tool {

// Bytes of a file of tasks. A job that has them all is larger than that itself.
inline constexpr std::size_t maxTaskFileSize = runlet::maxFileSize;

// Why no job can have `entry` for a task: it would arrive as something else, or not at all. Empty
// when one can.
std::string taskObstacle(std::string_view entry);

// Appends the tasks in the file at `path` to `*tasks`. False, with the file and line, the text and
// the reason, for a line that no job can have for a task, for a file without a line, and (with the
// status of the unreadable) for one that cannot be read, that is a device, or that has more than
// `maxTaskFileSize` bytes, of which no more are read. The byte order mark that some programs put
// at the start of a file is no part of the first field.
bool readTaskFile(const std::string& path, runlet::StringList* tasks, Complaint* complaint);

}  // namespace runlet_tool
