// Durations, sizes and texts in reports.

#include "tool/text/units.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace runlet_tool {
namespace {

TEST(ReportUnits, ShowDurationsInOneOrTwoUnits) {
  const struct {
    double seconds;
    const char* text;
  } rows[] = {
      {0, "0 s"},          {0.0004, "0 s"},          {0.0005, "1 ms"},
      {0.012, "12 ms"},    {0.9994, "999 ms"},       {0.9995, "1 s"},
      {1.24, "1.2 s"},     {9.94, "9.9 s"},          {9.96, "10 s"},
      {59.4, "59 s"},      {59.6, "1 min"},          {61, "1 min 1 s"},
      {252, "4 min 12 s"}, {3599.4, "59 min 59 s"},  {3599.6, "1 h"},
      {3900, "1 h 5 min"}, {86369, "23 h 59 min"},   {86370, "1 d"},
      {183600, "2 d 3 h"}, {1e12, "11574074 d 2 h"},
  };
  for (const auto& row : rows) EXPECT_EQ(durationText(row.seconds), row.text) << row.seconds;
}

TEST(ReportUnits, KnowTheSmallestStepOfADuration) {
  const struct {
    double seconds;
    double step;
  } rows[] = {{0, 0.001}, {0.9, 0.001}, {1, 0.1},    {9, 0.1},     {10, 1},
              {3599, 1},  {3600, 60},   {86399, 60}, {86400, 3600}};
  for (const auto& row : rows) EXPECT_EQ(durationStep(row.seconds), row.step) << row.seconds;
}

TEST(ReportUnits, ShowTimesInTheZoneOfTheCaller) {
  const char* const before = std::getenv("TZ");
  const std::string former = before == nullptr ? "" : before;
  setenv("TZ", "XYZ-2", 1);
  tzset();
  EXPECT_EQ(timeText(1795382130.9), "2026-11-22 23:15:30 XYZ");
  EXPECT_EQ(timeText(0), "1970-01-01 02:00:00 XYZ");
  if (before == nullptr) {
    unsetenv("TZ");
  } else {
    setenv("TZ", former.c_str(), 1);
  }
  tzset();
}

TEST(ReportUnits, ShowSizesInTheLargestUnit) {
  const struct {
    std::int64_t bytes;
    const char* text;
  } rows[] = {{0, "0 bytes"},
              {1, "1 byte"},
              {1023, "1023 bytes"},
              {1024, "1.0 KiB"},
              {1572864, "1.5 MiB"},
              {std::int64_t{3} << 30, "3.0 GiB"},
              {std::int64_t{5} << 40, "5.0 TiB"}};
  for (const auto& row : rows) EXPECT_EQ(sizeText(row.bytes), row.text) << row.bytes;
}

TEST(ReportUnits, ShortenTextsBetweenCharacters) {
  const struct {
    const char* text;
    std::size_t most;
    const char* shown;
  } rows[] = {
      {"", 0, ""},
      {"abc", 3, "abc"},
      {"abcd", 3, "abc..."},
      {"a\xc3\xa4z", 2, "a..."},
      {"a\xc3\xa4z", 3, "a\xc3\xa4..."},
      {"\xe2\x82\xac\xe2\x82\xac", 5, "\xe2\x82\xac..."},
  };
  for (const auto& row : rows) EXPECT_EQ(shortened(row.text, row.most), row.shown) << row.text;
}

TEST(ReportUnits, ShowCommandsAsAShellReadsThem) {
  EXPECT_EQ(commandText({"/bin/a", "b c", "\033"}, 40), "/bin/a 'b c' $'\\033'");
  EXPECT_EQ(commandText({"/bin/a", "bcdef"}, 8), "/bin/a b...");
  EXPECT_EQ(commandText({std::string(100000, 'x'), "y"}, 5), "xxxxx...");
  EXPECT_EQ(commandText({}, 5), "");
}

}  // namespace
}  // namespace runlet_tool
