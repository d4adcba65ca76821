// What the comparisons are tried with: every short text, or random cases.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace runlet_model {

// Draws the same numbers for the same seed, on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  // Any 64 bits.
  std::uint64_t bits();

  // A number from 0 to `limit` - 1, and one from `least` to `greatest`.
  std::size_t below(std::size_t limit);
  std::size_t between(std::size_t least, std::size_t greatest);

  bool oneIn(std::size_t count);

  template <typename List>
  const auto& from(const List& list) {
    return std::data(list)[below(std::size(list))];
  }

 private:
  std::uint64_t state_;
};

// How many cases a test tries: as many as RUNLET_TEST_CASES says, else the usual number, of which
// a build without optimisation tries a twentieth.
std::size_t caseCount(std::size_t usual);

// Checks all texts made of `symbols`, the shorter ones first, up to the greatest length for which
// their number is within the case count. The first that fails ends it.
void checkEveryText(const std::vector<std::string>& symbols, std::size_t usual,
                    const std::function<testing::AssertionResult(const std::string&)>& check);

// Checks random cases, each drawn with a seed of its own: RUNLET_TEST_SEED, which is usually 1,
// and the numbers that follow it. The first that fails ends it and tells its seed.
void checkRandomCases(std::size_t usual,
                      const std::function<testing::AssertionResult(Random&)>& check);

}  // namespace runlet_model
