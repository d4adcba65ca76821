// One load in its own process, to measure peak memory and count instructions.
//
//   load_once adapter|library JOBFILE     prints the peak in kilobytes

#include <sys/resource.h>

#include <cstdio>
#include <string>

#include "load.h"

int main(int argc, char* argv[]) {
  const std::string by = argc == 3 ? argv[1] : "";
  if (by != "adapter" && by != "library") return 2;
  (by == "adapter" ? runlet_bench::loadByAdapter : runlet_bench::loadByLibrary)(argv[2]);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%ld\n", usage.ru_maxrss);
}
