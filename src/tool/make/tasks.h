// Task files: one line of TAB-separated fields per task.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "job/string_list.h"
#include "tool/make/complaint.h"
#include "xml/limits.h"

namespace runlet_tool {

// Most bytes of a task file. A job with all its tasks is larger than the file itself.
inline constexpr std::size_t maxTaskFileSize = runlet::maxFileSize;

// Why `entry` cannot be a task of a job: it would be read as something else, or not at all. Empty
// if it can.
std::string taskObstacle(std::string_view entry);

// Appends the tasks in the file at `path` to `*tasks`. A byte order mark at the start is skipped.
// False, with the file and line, the text and the reason, for a line that cannot be a task and for
// an empty file; and, with the status exitUnreadable, for a file that cannot be read, is a device,
// or has more than `maxTaskFileSize` bytes (reading stops there).
bool readTaskFile(const std::string& path, runlet::StringList* tasks, Complaint* complaint);

}  // namespace runlet_tool
