// Files with a line of TAB-separated fields for each task.
#pragma once

#include <string>
#include <string_view>

#include "job/string_list.h"
#include "tool/make/complaint.h"

namespace runlet_tool {

// Why no job can have `entry` for a task: it would arrive as something else, or not at all. Empty
// when one can.
std::string taskObstacle(std::string_view entry);

// Appends the tasks in the file at `path` to `*tasks`. False, with the file and line, the text and
// the reason, for a line that no job can have for a task, for a file without a line, and (with the
// status of the unreadable) for one that cannot be read. The byte order mark that some programs put
// at the start of a file is no part of the first field.
bool readTaskFile(const std::string& path, runlet::StringList* tasks, Complaint* complaint);

}  // namespace runlet_tool
