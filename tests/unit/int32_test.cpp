#include "job/int32.h"

#include <gtest/gtest.h>

#include <limits>

namespace runlet {
namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

TEST(Int32, ReadsTheDecimalNumberATextBeginsWith) {
  const struct {
    const char* text;
    std::int32_t number;
  } rows[] = {
      {"0", 0},
      {"7", 7},
      {"-7", -7},
      {"+7", 7},
      {" 7x", 7},
      {"\t\n\v\f\r 7", 7},
      {"7 8", 7},
      {"7.9", 7},
      {"022", 22},
      {"0x10", 0},
      {"abc", 0},
      {"", 0},
      {"-", 0},
      {"+-7", 0},
      {"- 7", 0},
      {"2147483647", highest},
      {"2147483648", lowest},
      {"-2147483648", lowest},
      {"-2147483649", highest},
      {"4294967295", -1},
      {"4294967296", 0},
      {"4294967297", 1},
      {"-4294967297", -1},
      {"9223372036854775807", -1},  // the largest 64-bit number
      {"9223372036854775808", -1},  // strtol saturates from here on
      {"99999999999999999999", -1},
      {"-9223372036854775808", 0},  // the smallest
      {"-99999999999999999999", 0},
  };
  for (const auto& row : rows) EXPECT_EQ(decimalInt32(row.text), row.number) << row.text;
}

TEST(Int32, ArithmeticWrapsAround) {
  EXPECT_EQ(wrappingAdd(2, 3), 5);
  EXPECT_EQ(wrappingAdd(2, -3), -1);
  EXPECT_EQ(wrappingAdd(highest, 1), lowest);
  EXPECT_EQ(wrappingAdd(lowest, -1), highest);
  EXPECT_EQ(wrappingAdd(lowest, lowest), 0);
  EXPECT_EQ(wrappingMultiply(2, 60000), 120000);
  EXPECT_EQ(wrappingMultiply(-1, 60000), -60000);
  EXPECT_EQ(wrappingMultiply(35791, 60000), 2147460000);
  EXPECT_EQ(wrappingMultiply(35792, 60000), -2147447296);
  EXPECT_EQ(wrappingMultiply(lowest, -1), lowest);
}

}  // namespace
}  // namespace runlet
