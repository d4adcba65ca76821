// Times for people.

#include <gtest/gtest.h>

#include "tool/text/format.h"

namespace runlet_tool {
namespace {

TEST(Duration, HasAtMostTwoUnits) {
  const struct {
    double seconds;
    const char* text;
  } rows[] = {{0, "0.0 s"},
              {0.04, "0.0 s"},
              {0.26, "0.3 s"},
              {59.94, "59.9 s"},
              {59.95, "1 min 0 s"},
              {200, "3 min 20 s"},
              {3599.4, "59 min 59 s"},
              {3599.5, "1 h 0 min"},
              {18420, "5 h 7 min"},
              {86399.5, "1 d 0 h"},
              {183600, "2 d 3 h"},
              {1e300, "11574074074 d 1 h"}};
  for (const auto& row : rows) EXPECT_EQ(durationText(row.seconds), row.text) << row.seconds;
}

}  // namespace
}  // namespace runlet_tool
