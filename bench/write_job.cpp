// Writes a job with a given number of tasks.
//
//   write_job TASKS JOBFILE

#include <cstdlib>

#include "job.h"

int main(int argc, char* argv[]) {
  if (argc != 3) return 2;
  runlet_bench::writeJob(argv[2], std::atol(argv[1]));
}
