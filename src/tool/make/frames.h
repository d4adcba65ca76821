// Frame lists such as 1-100x2,150.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "job/string_list.h"

namespace runlet_tool {

// The limit for checking every frame for duplicates.
inline constexpr std::int64_t maxFrames = 10'000'000;

inline constexpr std::size_t maxFrameTasks = 1000000;

// Appends to `*tasks` the tasks that render the frames of `list`, with up to `chunk` (at least 1)
// frames of one range per task. The fields of a task are its name ("frame 150", "frames 1-19"), its
// first and its last frame.
//
// The list consists of frames and ranges FIRST-LAST or FIRST-LASTxSTEP, separated by commas. Frames
// are 32-bit numbers and may be negative. False, with the reason in `*reason`, for any other list,
// for a duplicate frame, and for more than `maxFrames` frames or `maxFrameTasks` tasks.
bool appendFrameTasks(std::string_view list, std::int32_t chunk, runlet::StringList* tasks,
                      std::string* reason);

}  // namespace runlet_tool
