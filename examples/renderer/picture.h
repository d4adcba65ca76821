// A rendered picture.
#pragma once

#include <cstdint>
#include <vector>

#include "scene.h"

namespace renderer {

// Rows from the top, in each the pixels from the left, in each the bytes red, green and blue.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bytes;
};

// The scene as its camera sees it, with 4 samples a pixel.
Picture render(const Scene& scene, int width, int height);

}  // namespace renderer
