// Writing a file whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// Makes `text` the content of the file at `path`: of a new one, or of the regular file that is
// there, which keeps its owner, its group and its permission bits, but no set-user-id, set-group-id
// or sticky bit. It is written to a file beside it that then takes its place, so that whoever reads
// `path` finds all of the old text or all of the new one, also after a failure.
//
// Which links are followed and which paths name a descriptor, which is written to as it is, is
// findOutputPlace's to say. Nothing else is written to: no pipe, socket or device.
//
// Yields why the text could not be written, and empty if it was.
std::string writeFile(const std::string& path, std::string_view text);

}  // namespace runlet_tool
