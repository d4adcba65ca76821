// Lists of frames, as in 1-100x2,150.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "job/string_list.h"

namespace runlet_tool {

// Every frame is looked at, for one that is given twice.
inline constexpr std::int64_t maxFrames = 10'000'000;

inline constexpr std::size_t maxFrameTasks = 1000000;

// Appends the tasks that render the frames of `list` to `*tasks`, up to `chunk` (at least 1) frames
// of one range to a task. The fields of a task are its name ("frame 150", "frames 1-19"), its first
// and its last frame.
//
// The list is made of frames and of ranges FIRST-LAST or FIRST-LASTxSTEP, with commas in between.
// Frames are 32-bit numbers and may be negative. False, with the reason in `*reason`, for a list
// that is anything else, that has a frame twice, or that comes to more than `maxFrames` frames or
// `maxFrameTasks` tasks.
bool appendFrameTasks(std::string_view list, std::int32_t chunk, runlet::StringList* tasks,
                      std::string* reason);

}  // namespace runlet_tool
