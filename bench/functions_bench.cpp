// The work done for every task, compared with similar work by the C library.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "exec/words.h"
#include "job/fill_in.h"

extern "C" void* __libc_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)

namespace {

std::size_t allocations = 0;

}  // namespace

// Counts allocations, including `new`.
extern "C" void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

namespace runlet {
namespace {

// Reported per iteration, next to the time.
class AllocationCount {
 public:
  explicit AllocationCount(benchmark::State* state) : state_(state) {}
  ~AllocationCount() {
    state_->counters["allocations"] = benchmark::Counter(static_cast<double>(allocations - before_),
                                                         benchmark::Counter::kAvgIterations);
  }
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

 private:
  benchmark::State* state_;
  std::size_t before_ = allocations;
};

// Ten placeholders of all kinds.
constexpr char argumentTemplate[] =
    "render -palette %jp1 -grain %jp2 -frame %4tn -name %tp1 -from %tp2 -to %tp3 "
    "-tile %tp4 -out %jp3 -pad %6tp2 -last %tn";

AdapterContext job() {
  AdapterContext context;
  context.taskList.push_back("meadow\t101\t150\t7");
  for (const char* name : {"palette", "grain", "out"}) context.paramNames.push_back(name);
  for (const char* value : {"/show/b.dat", "fine", "/out/a"}) context.paramValues.push_back(value);
  return context;
}

void fillIn(benchmark::State& state) {
  const AdapterContext context = job();
  const AllocationCount count(&state);
  for ([[maybe_unused]] auto _ : state) {
    std::string line;
    if (!fillInArguments(&context, &line, argumentTemplate, 0)) std::abort();
    benchmark::DoNotOptimize(line);
  }
}
BENCHMARK(fillIn);

// The same line formatted by the C library from given values.
void fillInByPrintf(benchmark::State& state) {
  const AllocationCount count(&state);
  for ([[maybe_unused]] auto _ : state) {
    char line[4000];
    std::snprintf(line, sizeof line,
                  "render -palette %s -grain %s -frame %04d -name %s -from %s -to %s "
                  "-tile %s -out %s -pad %06d -last %d",
                  "/show/b.dat", "fine", 1, "meadow", "101", "150", "7", "/out/a", 101, 1);
    std::string result = line;
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(fillInByPrintf);

// A command line of 2,000 bytes: words of different lengths, every fifth in quotes.
std::string commandLine() {
  static const char* const words[] = {"-option ", "value ", "/a/path/to/a/file.ext ", "7 ",
                                      "\"some words\" "};
  std::string line = "/usr/bin/program ";
  for (std::size_t i = 0; line.size() < 2000; ++i) line += words[i % std::size(words)];
  line.resize(2000, 'x');
  return line;
}

void split(benchmark::State& state) {
  const std::string line = commandLine();
  const AllocationCount count(&state);
  for ([[maybe_unused]] auto _ : state) {
    char copy[2001];
    std::memcpy(copy, line.c_str(), sizeof copy);
    benchmark::DoNotOptimize(splitWords(copy));
  }
}
BENCHMARK(split);

// Split only at spaces, by the C library, without building a list.
void splitByStrtok(benchmark::State& state) {
  const std::string line = commandLine();
  const AllocationCount count(&state);
  for ([[maybe_unused]] auto _ : state) {
    char copy[2001];
    std::memcpy(copy, line.c_str(), sizeof copy);
    char* rest = nullptr;
    for (char* word = strtok_r(copy, " ", &rest); word != nullptr;
         word = strtok_r(nullptr, " ", &rest)) {
      benchmark::DoNotOptimize(word);
    }
  }
}
BENCHMARK(splitByStrtok);

}  // namespace
}  // namespace runlet

BENCHMARK_MAIN();
