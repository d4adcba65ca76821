// Time to load jobs of growing size, compared with the XML library alone.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include "job_files.h"
#include "load.h"

namespace {

// Each starts with a trimmed heap, like that of a new process.
void load(benchmark::State& state, void (*by)(const std::string& path)) {
  const std::string path = runlet_bench::jobOf(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    by(path);
    state.PauseTiming();
    malloc_trim(0);
    state.ResumeTiming();
  }
}

// Benchmarks of one size run in sequence, so that they see the machine in the same state.
[[maybe_unused]] const bool registered = [] {
  const struct {
    const char* name;
    void (*by)(const std::string& path);
  } loaders[] = {
      {"load/library", runlet_bench::loadByLibrary},
      {"load/libraryWithoutColumns", runlet_bench::loadByLibraryWithoutColumns},
      {"load/adapter", runlet_bench::loadByAdapter},
  };
  for (long tasks = 10; tasks <= 1000000; tasks *= 10) {
    for (const auto& loader : loaders) {
      benchmark::RegisterBenchmark(loader.name, load, loader.by)
          ->Unit(benchmark::kMillisecond)
          ->Arg(tasks);
    }
  }
  return true;
}();

}  // namespace

BENCHMARK_MAIN();
