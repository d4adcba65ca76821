// The inputs of the comparisons: every short text, or random cases.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace runlet_model {

// Generates the same numbers for the same seed on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  // Any 64 bits.
  std::uint64_t bits();

  // A number from 0 to `limit` - 1, or from `least` to `greatest`.
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

// The number of cases that a test tries: RUNLET_TEST_CASES if set, else the default, of which an
// unoptimised build tries a twentieth.
std::size_t caseCount(std::size_t usual);

// Checks all texts made of `symbols`, shortest first, up to the greatest length for which their
// number is within the case count. Stops at the first failure.
void checkEveryText(const std::vector<std::string>& symbols, std::size_t usual,
                    const std::function<testing::AssertionResult(const std::string&)>& check);

// Checks random cases, each with its own seed: RUNLET_TEST_SEED (default 1) and the numbers that
// follow it. Stops at the first failure and reports its seed.
void checkRandomCases(std::size_t usual,
                      const std::function<testing::AssertionResult(Random&)>& check);

}  // namespace runlet_model
