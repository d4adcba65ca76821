// Quantiles and histograms of durations.

#include "tool/report/statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

namespace runlet_tool {
namespace {

std::string textOf(const std::vector<Bucket>& buckets) {
  std::string text;
  for (const Bucket& bucket : buckets) {
    char row[96];
    std::snprintf(row, sizeof row, "%g-%g: %zu\n", bucket.from, bucket.to, bucket.count);
    text += row;
  }
  return text;
}

TEST(Quantile, IsTheLeastValueThatEnoughDoNotExceed) {
  const std::vector<double> hundred = [] {
    std::vector<double> values(100);
    std::iota(values.begin(), values.end(), 1);
    return values;
  }();
  const struct {
    std::vector<double> values;
    double share;
    double value;
  } rows[] = {
      {{7}, 0, 7},        {{7}, 0.5, 7},       {{7}, 1, 7},         {{1, 2}, 0.5, 1},
      {{1, 2}, 0.51, 2},  {{1, 2, 9}, 0.5, 2}, {{1, 2, 9}, 0.9, 9}, {hundred, 0, 1},
      {hundred, 0.5, 50}, {hundred, 0.9, 90},  {hundred, 0.99, 99}, {hundred, 1, 100},
  };
  for (const auto& row : rows) EXPECT_EQ(quantile(row.values, row.share), row.value) << row.share;
}

TEST(RoundStep, FitsIntoTheLengthAtMostThatOften) {
  const struct {
    double length;
    std::size_t most;
    double step;
  } rows[] = {{0.0001, 5, 0.001}, {4, 5, 1},     {5.9, 5, 1},
              {6, 5, 2},          {662, 5, 120}, {1e7, 2, 3456000}};
  for (const auto& row : rows) EXPECT_EQ(roundStep(row.length, row.most), row.step) << row.length;
}

TEST(Histogram, HasRoundBordersForValuesThatDifferLittle) {
  EXPECT_EQ(textOf(histogram({0}, 8)), "0-0.001: 1\n");
  EXPECT_EQ(textOf(histogram({5, 5, 5}, 8)), "5-5.1: 3\n");
  EXPECT_EQ(textOf(histogram({12, 14, 15, 19}, 4)), "12-14: 1\n14-16: 2\n16-18: 0\n18-20: 1\n");
  EXPECT_EQ(textOf(histogram({100, 105, 119}, 8)),
            "100-105: 1\n105-110: 1\n110-115: 0\n115-120: 1\n");
  EXPECT_EQ(textOf(histogram({2e6, 9e6}, 4)),
            "0-3.456e+06: 1\n3.456e+06-6.912e+06: 0\n6.912e+06-1.0368e+07: 1\n");
}

TEST(Histogram, HasGrowingBucketsIfAFewValuesAreMuchGreater) {
  EXPECT_EQ(textOf(histogram({0, 0, 0.5}, 12)),
            "0-0.001: 2\n0.001-0.002: 0\n0.002-0.005: 0\n0.005-0.01: 0\n0.01-0.02: 0\n"
            "0.02-0.05: 0\n0.05-0.1: 0\n0.1-0.2: 0\n0.2-0.5: 0\n0.5-1: 1\n");
  EXPECT_EQ(textOf(histogram({1, 1, 1, 3, 40}, 4)), "1-5: 4\n5-20: 0\n20-60: 1\n");
  EXPECT_EQ(textOf(histogram({100, 100, 3e6}, 3)),
            "60-1800: 2\n1800-86400: 0\n86400-3.456e+06: 1\n");
}

// Also where numbers are rounded: 0.145 / 0.005 is less than 29, and 29 * 0.005 is 0.145.
TEST(Histogram, HasEveryValueInABucket) {
  EXPECT_EQ(histogram({0.107, 0.145}, 8).back().count, 1U);
  for (const std::size_t most : {2U, 5U, 8U, 24U}) {
    for (int i = 0; i < 2000; ++i) {
      const double step = i * 0.0137;
      std::vector<double> values = {step, step * 2, step * 3, step * 3 + 0.1 * i, step * 70};
      std::sort(values.begin(), values.end());
      std::size_t count = 0;
      const std::vector<Bucket> buckets = histogram(values, most);
      for (const Bucket& bucket : buckets) count += bucket.count;
      EXPECT_EQ(count, values.size()) << i;
      EXPECT_LE(buckets.size(), most) << i;
    }
  }
}

}  // namespace
}  // namespace runlet_tool
