// The limits of a run on its command line.

#include "tool/batch/limits.h"

#include <gtest/gtest.h>

namespace runlet_tool {
namespace {

TEST(Limits, MayBeTimesWithAUnit) {
  const struct {
    const char* text;
    long long seconds;  // 0 = not a time
  } rows[] = {{"1s", 1},
              {"90s", 90},
              {"5m", 300},
              {"2h", 7200},
              {"1d", 86400},
              {"007m", 420},
              {"", 0},
              {"90", 0},
              {"s", 0},
              {"0s", 0},
              {"-1s", 0},
              {"1.5h", 0},
              {"5 m", 0},
              {"5M", 0},
              {"5min", 0},
              {"2147483647s", 2147483647},
              {"2147483648s", 0},
              {"24855d", 2147472000},
              {"24856d", 0}};
  for (const auto& row : rows) {
    const auto time = parseTime(row.text);
    EXPECT_EQ(time.value_or(std::chrono::milliseconds(0)).count(), row.seconds * 1000) << row.text;
    EXPECT_EQ(time.has_value(), row.seconds != 0) << row.text;
    EXPECT_EQ(complaintAboutTime(row.text).empty(), time.has_value()) << row.text;
  }
}

TEST(Limits, MayBeNumbersOrPercentagesOfFailures) {
  const struct {
    const char* text;
    bool isNow;
    std::size_t ofSeven;  // failures of seven tasks
  } rows[] = {{"soon", false, 1},
              {"now", true, 1},
              {"soon,fail=3", false, 3},
              {"now,fail=1", true, 1},
              {"now,fail=4294967295", true, 4294967295},
              {"soon,fail=1%", false, 1},
              {"soon,fail=14%", false, 1},
              {"soon,fail=15%", false, 2},
              {"now,fail=100%", true, 7}};
  for (const auto& row : rows) {
    const auto option = parseHalt(row.text);
    ASSERT_TRUE(option) << row.text;
    EXPECT_EQ(complaintAboutHalt(row.text), "");
    EXPECT_EQ(option->isNow, row.isNow) << row.text;
    EXPECT_EQ(failuresOf(*option, 7), row.ofSeven) << row.text;
  }
}

TEST(Limits, OfFailuresMustBeComplete) {
  for (const char* text : {"", "later", "soon,", "soon,fail", "soon,fail=", "now,fail=0",
                           "now,fail=0%", "now,fail=101%", "now,fail=-1", "now,fail=4294967296",
                           "now,fail=1,", "now,succeed=1", "now,fail=%", ",fail=1", "Now"}) {
    EXPECT_FALSE(parseHalt(text)) << text;
    EXPECT_EQ(complaintAboutHalt(text),
              std::string(text) + " is neither soon nor now, alone or with ,fail=N or ,fail=N%");
  }
}

}  // namespace
}  // namespace runlet_tool
