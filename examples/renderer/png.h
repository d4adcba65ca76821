// Writing a picture.
#pragma once

#include <string>

#include "picture.h"

namespace renderer {

// Writes `picture` to the PNG file `path`, under another name at first, so that there is never
// half a picture at `path`. Yields the empty text, or why it could not be written; then there is
// no new file.
std::string writePng(const Picture& picture, const std::string& path);

}  // namespace renderer
