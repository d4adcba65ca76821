// The entry point of fuzz targets that take inputs unchanged.

#include "fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  runlet_fuzz::tryInput(data, size);
  return 0;
}
