#include "property.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <random>

namespace runlet_test {
namespace {

constexpr std::uint64_t enoughJobs = 2000;
constexpr std::uint64_t mostJobs = 5;  // for each regular one
constexpr std::uint64_t usualSeed = 1;
constexpr int enoughFailures = 3;

std::uint64_t setting(const char* name, std::uint64_t usual) {
  const char* text = std::getenv(name);
  return text == nullptr ? usual : std::strtoull(text, nullptr, 10);
}

std::uint64_t seed() {
  return setting("RUNLET_JOBS_SEED", usualSeed);
}

}  // namespace

// Different from test to test.
std::uint64_t Property::startOf(std::uint64_t number) const {
  std::string text = testing::UnitTest::GetInstance()->current_test_info()->name();
  text.append(" ").append(std::to_string(seed())).append(" ").append(std::to_string(number));
  std::seed_seq sequence(text.begin(), text.end());
  std::array<std::uint32_t, 2> mixed{};
  sequence.generate(mixed.begin(), mixed.end());
  return std::uint64_t{mixed[0]} << 32U | mixed[1];
}

void Property::tryJobs(const Draw& draw, bool mayLackRights, const Try& tryJob,
                       const std::vector<Minimum>& minima) {
  const bool isSingle = std::getenv("RUNLET_JOBS_CASE") != nullptr;
  const std::uint64_t first = setting("RUNLET_JOBS_CASE", 0);
  const std::uint64_t count = isSingle ? 1 : setting("RUNLET_JOBS", RUNLET_USUAL_JOBS);
  const auto mostFailures = static_cast<int>(setting("RUNLET_JOBS_FAILURES", enoughFailures));
  const bool mustReach = count >= enoughJobs;
  int failures = 0;
  // The outcomes also depend on the user and the machine. While a mark is not reached, more jobs
  // are tried.
  const auto mustContinue = [&](std::uint64_t tried) {
    return tried < count || (mustReach && tried < count * mostJobs && !areReached(minima));
  };
  for (std::uint64_t i = first; mustContinue(i - first) && failures < mostFailures; ++i) {
    runlet_model::Random random(startOf(i));
    const Scene scene(&random, draw(&random), mayLackRights);
    const Trial trial = tryJob(scene, &random);
    for (const std::string& mark : trial.marks) ++reached_[mark];
    if (trial.differences.empty()) continue;
    ++failures;
    ADD_FAILURE() << "RUNLET_JOBS_SEED=" << seed() << " RUNLET_JOBS_CASE=" << i << "\n"
                  << trial.differences << scene.description();
  }
  if (std::getenv("RUNLET_JOBS_SHOW") != nullptr) show();
  if (!mustReach) return;
  for (const Minimum& minimum : minima) {
    EXPECT_GE(reached_[minimum.mark], minimum.count) << minimum.mark;
  }
}

bool Property::areReached(const std::vector<Minimum>& minima) const {
  return std::all_of(minima.begin(), minima.end(), [&](const Minimum& minimum) {
    const auto reached = reached_.find(minimum.mark);
    return (reached == reached_.end() ? 0 : reached->second) >= minimum.count;
  });
}

void Property::show() const {
  for (const auto& [name, count] : reached_) std::cout << count << " " << name << "\n";
}

}  // namespace runlet_test
