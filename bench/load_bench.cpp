// Time to load jobs of growing size, beside what the XML library alone takes.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include "job_files.h"
#include "load.h"

namespace {

// Each starts with a heap that holds on to nothing, as that of a new process.
void load(benchmark::State& state, void (*by)(const std::string& path)) {
  const std::string path = runlet_bench::jobOf(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    by(path);
    state.PauseTiming();
    malloc_trim(0);
    state.ResumeTiming();
  }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Unit(benchmark::kMillisecond);
  for (long tasks = 10; tasks <= 1000000; tasks *= 10) benchmark->Arg(tasks);
}

BENCHMARK_CAPTURE(load, library, runlet_bench::loadByLibrary)->Apply(sizes);
BENCHMARK_CAPTURE(load, libraryWithoutColumns, runlet_bench::loadByLibraryWithoutColumns)
    ->Apply(sizes);
BENCHMARK_CAPTURE(load, adapter, runlet_bench::loadByAdapter)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
