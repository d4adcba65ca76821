// A rendered picture.
#pragma once

#include <cstdint>
#include <vector>

#include "scene.h"

namespace renderer {

// Rows from the top, pixels from the left, with a byte each for red, green and blue.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bytes;
};

// Renders the scene as its camera sees it, with 4 samples per pixel.
Picture render(const Scene& scene, int width, int height);

}  // namespace renderer
