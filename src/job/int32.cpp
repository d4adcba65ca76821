#include "job/int32.h"

#include <cstdlib>

namespace runlet {

std::int32_t decimalInt32(const char* text) {
  return static_cast<std::int32_t>(std::strtol(text, nullptr, 10));
}

}  // namespace runlet
