// Writing a file atomically.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// Writes `text` to the file at `path`: a new file, or an existing regular file, which keeps its
// owner, group and permission bits, but not its set-user-id, set-group-id or sticky bit. The text
// is written to a temporary file in the same folder that then replaces it, so that readers of
// `path` find either the old or the new text, even after a failure.
//
// findOutputPlace defines which links are followed, and which paths name a descriptor, which is
// written to directly. Anything else, such as a pipe, socket or device, is refused.
//
// Returns why the text could not be written; empty on success.
std::string writeFile(const std::string& path, std::string_view text);

}  // namespace runlet_tool
