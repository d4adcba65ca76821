// Time to launch a task of jobs of growing size and wait for its end. The launches print to
// standard output, between the benchmark's own lines, so let it write its figures to a file.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdlib>

#include "exec/launch.h"
#include "job/parameter_file.h"
#include "job_files.h"

namespace {

void launch(benchmark::State& state) {
  runlet::AdapterContext context;
  context.jobFile = runlet_bench::jobOf(state.range(0));
  if (!runlet::loadParameterFile(&context)) std::exit(1);
  malloc_trim(0);  // as a request does
  std::int32_t task = 0;
  for ([[maybe_unused]] auto _ : state) {
    if (!runlet::launchTask(&context, task)) std::exit(1);
    task = (task + 1) % static_cast<std::int32_t>(context.taskList.size());
  }
}

BENCHMARK(launch)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->RangeMultiplier(10)
    ->Range(10, 1000000);

}  // namespace

BENCHMARK_MAIN();
