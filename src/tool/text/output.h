// Standard output.
#pragma once

#include <cstdio>
#include <string_view>

namespace runlet_tool {

// Whether it was all taken is looked at once, when the program ends.
inline void put(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace runlet_tool
