#include "cases.h"

#include <cstdlib>

namespace runlet_model {

namespace {

std::uint64_t fromEnvironment(const char* name, std::uint64_t usual) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : usual;
}

// Advances to the next text of the same length; false after the last.
bool next(std::vector<std::size_t>* places, std::size_t symbolCount) {
  for (std::size_t& place : *places) {
    if (++place < symbolCount) return true;
    place = 0;
  }
  return false;
}

void checkEveryTextOfLength(
    std::size_t length, const std::vector<std::string>& symbols,
    const std::function<testing::AssertionResult(const std::string&)>& check) {
  std::vector<std::size_t> places(length, 0);
  std::string text;
  do {
    text.clear();
    for (const std::size_t place : places) text += symbols[place];
    ASSERT_TRUE(check(text));
  } while (next(&places, symbols.size()));
}

}  // namespace

// Steps of a constant, each mixed well.
std::uint64_t Random::bits() {
  std::uint64_t mixed = state_ += 0x9e3779b97f4a7c15U;
  mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
  mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
  return mixed ^ (mixed >> 31);
}

std::size_t Random::below(std::size_t limit) {
  return bits() % limit;
}

std::size_t Random::between(std::size_t least, std::size_t greatest) {
  return least + below(greatest - least + 1);
}

bool Random::oneIn(std::size_t count) {
  return below(count) == 0;
}

std::size_t caseCount(std::size_t usual) {
  return fromEnvironment("RUNLET_TEST_CASES", usual / RUNLET_USUAL_SHARE);
}

void checkEveryText(const std::vector<std::string>& symbols, std::size_t usual,
                    const std::function<testing::AssertionResult(const std::string&)>& check) {
  const std::size_t allowed = caseCount(usual);
  std::size_t ofLength = 1;
  std::size_t sum = 1;
  for (std::size_t length = 0; sum <= allowed; ++length) {
    checkEveryTextOfLength(length, symbols, check);
    if (testing::Test::HasFatalFailure()) return;
    ofLength *= symbols.size();
    sum += ofLength;
  }
}

void checkRandomCases(std::size_t usual,
                      const std::function<testing::AssertionResult(Random&)>& check) {
  const std::uint64_t first = fromEnvironment("RUNLET_TEST_SEED", 1);
  const std::uint64_t count = caseCount(usual);
  for (std::uint64_t seed = first; seed - first < count; ++seed) {
    Random random(seed);
    ASSERT_TRUE(check(random)) << "repeat with RUNLET_TEST_CASES=1 RUNLET_TEST_SEED=" << seed;
  }
}

}  // namespace runlet_model
