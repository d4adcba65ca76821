// Writing a picture as PNG.
#pragma once

#include <string>

#include "picture.h"

namespace renderer {

// Writes `picture` to the PNG file `path`, under a temporary name first, so that `path` never holds
// an incomplete picture. Returns why it could not be written, in which case there is no new file;
// empty on success.
std::string writePng(const Picture& picture, const std::string& path);

}  // namespace renderer
