// The three standard streams.
#pragma once

namespace runlet_tool {

// Opens /dev/null in place of those that are closed, so that no other descriptor gets their number.
void openStreams();

}  // namespace runlet_tool
