// One load in a process of its own: its peak of memory, and something to count instructions of.
//
//   load_once adapter|library JOBFILE     prints the peak in kilobytes
//   load_once write TASKS JOBFILE         writes a job to load

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "job.h"
#include "load.h"

int main(int argc, char* argv[]) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "write" && argc == 4) {
    runlet_bench::writeJob(argv[3], std::atol(argv[2]));
    return 0;
  }
  if (argc != 3 || (what != "adapter" && what != "library")) return 2;
  (what == "adapter" ? runlet_bench::loadByAdapter : runlet_bench::loadByLibrary)(argv[2]);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%ld\n", usage.ru_maxrss);
}
