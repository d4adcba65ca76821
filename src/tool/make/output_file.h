// Writing a file whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// All of these yield 0, or the error number of what failed.

int writeAll(int descriptor, std::string_view text);

// Makes `text` the content of the file at `path`: of a new one, or of the one that is there, which
// keeps its mode. It is written to a file beside it that then takes its place, so that whoever
// reads `path` finds all of the old text or all of the new one, also after a failure. A symbolic
// link stays, and what it leads to is written; it has to lead somewhere. What is no regular file,
// as a pipe, is written to as it is.
int writeFile(const std::string& path, std::string_view text);

}  // namespace runlet_tool
