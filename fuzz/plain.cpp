// The entry of the fuzz targets whose inputs are as they stand.

#include "fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  runlet_fuzz::tryInput(data, size);
  return 0;
}
