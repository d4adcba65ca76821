// The list of all findings, held against what there is of each.

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "findings.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

bool isCode(const std::string& text) {
  return text.size() == 5 && text.rfind("RJ", 0) == 0 &&
         std::all_of(text.begin() + 2, text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

Strings sorted(Strings codes) {
  std::sort(codes.begin(), codes.end());
  return codes;
}

// What every line of the list begins with.
Strings explained() {
  Strings codes;
  std::istringstream lines(runTool({"explain"}).output);
  for (std::string line; std::getline(lines, line);) codes.push_back(line.substr(0, 5));
  return codes;
}

Strings tested() {
  Strings codes;
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      const std::string code = std::string(suite.GetTestInfo(j)->name()).substr(0, 5);
      if (isCode(code)) codes.push_back(code);
    }
  }
  return codes;
}

Strings sampled() {
  Strings codes;
  for (const auto& entry : std::filesystem::directory_iterator(samplesFolder())) {
    codes.push_back(entry.path().filename());
  }
  return codes;
}

// The list is in order, and no code stands in it twice.
TEST(Rules, AllHaveATestAndASample) {
  const Strings codes = explained();
  EXPECT_TRUE(std::all_of(codes.begin(), codes.end(), isCode)) << testing::PrintToString(codes);
  EXPECT_EQ(sorted(tested()), codes);
  EXPECT_EQ(sorted(sampled()), codes);
}

}  // namespace
}  // namespace runlet_test
