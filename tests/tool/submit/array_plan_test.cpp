// Distributing tasks over array elements.

#include <gtest/gtest.h>

#include <limits>
#include <numeric>
#include <ostream>

#include "tool/slurm/arrays.h"

namespace runlet_tool {

void PrintTo(const ArrayPart& part, std::ostream* out) {
  const ArrayLayout& layout = part.layout;
  *out << layout.base << ":" << layout.chunk << ":" << layout.last << " "
       << elementsText(part.elements) << " '" << part.number << "' " << part.digits;
}

namespace {

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();

using Numbers = std::vector<std::int32_t>;

Numbers range(std::int32_t first, std::int32_t last) {
  Numbers numbers(static_cast<std::size_t>(last - first + 1));
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

struct PlanCase {
  Numbers tasks;
  std::size_t taskCount;
  std::int32_t chunk;
  std::int64_t maxArraySize;
  std::vector<ArrayPart> parts;
};

void expectPlans(const std::vector<PlanCase>& cases) {
  for (const PlanCase& row : cases) {
    SCOPED_TRACE(elementsText(row.tasks) + " of " + std::to_string(row.taskCount) + " by " +
                 std::to_string(row.chunk) + ", " + std::to_string(row.maxArraySize));
    EXPECT_EQ(planArrays(row.tasks, row.taskCount, row.chunk, row.maxArraySize), row.parts);
  }
}

ArrayPart part(std::int32_t base, std::int32_t last, const Numbers& elements,
               const std::string& number, int digits) {
  return {{base, 1, last}, elements, number, digits};
}

TEST(ArrayPlan, IsOneArrayIfTheTasksFit) {
  expectPlans({
      {{1}, 1, 1, 1001, {part(0, 1, {1}, "", 1)}},
      {range(1, 9), 9, 1, 1001, {part(0, 9, range(1, 9), "", 1)}},
      {range(1, 9), 10, 1, 1001, {part(0, 9, range(1, 9), "", 2)}},
      {range(1, 1000), 1000, 1, 1001, {part(0, 1000, range(1, 1000), "", 4)}},
      {{2, 5, 6}, 200, 1, 1001, {part(0, 6, {2, 5, 6}, "", 3)}},
      {{1}, 1, 1, 2, {part(0, 1, {1}, "", 1)}},
      {range(1, 9), 2000, 1, 10, {part(0, 9, range(1, 9), "", 4)}},
      {{largest}, 7, 1, std::int64_t{largest} + 1, {part(0, largest, {largest}, "", 1)}},
  });
}

TEST(ArrayPlan, IsOneArrayForEachPrefixOfTheNumbersIfTheTasksDoNotFit) {
  expectPlans({
      {range(1, 3),
       3,
       1,
       2,
       {part(1, 3, {0}, "1", 0), part(2, 3, {0}, "2", 0), part(3, 3, {0}, "3", 0)}},
      {{10}, 10, 1, 10, {part(10, 10, {0}, "1", 1)}},
      {range(1, 11), 11, 1, 11, {part(0, 11, range(1, 9), "0", 1), part(10, 11, {0, 1}, "1", 1)}},
      {range(995, 1000),
       1000,
       1,
       1000,
       {part(0, 1000, range(995, 999), "0", 3), part(1000, 1000, {0}, "1", 3)}},
      {range(999, 1001),
       1001,
       1,
       1001,
       {part(0, 1001, {999}, "0", 3), part(1000, 1001, {0, 1}, "1", 3)}},
      {{1, 4999, 12000, 12001},
       12345,
       1,
       4'000'001,
       {part(0, 12001, {1, 4999, 12000, 12001}, "", 5)}},
      {{1, 4999, 12000, 12001},
       12345,
       1,
       1001,
       {part(0, 12001, {1}, "00", 3), part(4000, 12001, {999}, "04", 3),
        part(12000, 12001, {0, 1}, "12", 3)}},
      {{largest - 1, largest},
       largest,
       1,
       1001,
       {part(2147483000, largest, {646, 647}, "2147483", 3)}},
      {{largest}, largest, 1, largest, {part(2000000000, largest, {147483647}, "2", 9)}},
  });
}

TEST(ArrayPlan, TreatsAClusterWithoutArraysAsOneOfSingleElements) {
  expectPlans({{{1, 2}, 2, 1, 0, {part(1, 2, {0}, "1", 0), part(2, 2, {0}, "2", 0)}},
               {{1}, 1, 1, 1, {part(1, 1, {0}, "1", 0)}}});
}

TEST(ArrayPlan, NumbersChunksThroughTheWholeJob) {
  expectPlans({
      {range(1, 10), 10, 5, 1001, {{{1, 5, 10}, {0, 1}, "", 1}}},
      {range(1, 11), 11, 5, 1001, {{{1, 5, 11}, {0, 1, 2}, "", 1}}},
      {range(1, 101), 101, 10, 1001, {{{1, 10, 101}, range(0, 10), "", 2}}},
      {range(8, 17), 20, 5, 1001, {{{3, 5, 17}, {1, 2}, "", 1}}},
      {range(6, 8), 20, 5, 1001, {{{1, 5, 8}, {1}, "", 1}}},
      {range(3, 4), 20, largest, 1001, {{{3, largest, 4}, {0}, "", 1}}},
      {{largest}, largest, 2, std::int64_t{largest}, {{{1, 2, largest}, {1073741823}, "", 10}}},
      {{largest}, largest, 2, 1001, {{{2147483647 - 823 * 2, 2, largest}, {823}, "1073741", 3}}},
  });
}

TEST(ArrayPlan, AlsoSplitsChunksIntoArrays) {
  expectPlans({
      {range(4, 27),
       27,
       2,
       10,
       {{{2, 2, 27}, range(1, 9), "0", 1}, {{22, 2, 27}, range(0, 2), "1", 1}}},
      {range(1, 5),
       5,
       2,
       2,
       {{{1, 2, 5}, {0}, "0", 0}, {{3, 2, 5}, {0}, "1", 0}, {{5, 2, 5}, {0}, "2", 0}}},
  });
}

TEST(ArrayPlan, SplitsAnArrayWhoseListOfElementsIsTooLong) {
  Numbers odd;
  for (std::int32_t i = 1; i < 6001; i += 2) odd.push_back(i);
  const std::vector<ArrayPart> parts = planArrays(odd, 9000, 1, 10000);
  Numbers all;
  for (const ArrayPart& each : parts) {
    EXPECT_LE(elementsText(each.elements).size(), 4000U);
    EXPECT_EQ(each, part(0, 5999, each.elements, "", 4));
    all.insert(all.end(), each.elements.begin(), each.elements.end());
  }
  EXPECT_EQ(all, odd);
  EXPECT_EQ(parts.size(), 4U);
}

TEST(ArrayPlan, CountsARangeOnce) {
  Numbers numbers;
  for (std::int32_t i = 1000; i < 9000; i += 10) {
    for (std::int32_t j = 0; j < 7; ++j) numbers.push_back(i + j);
  }
  const std::vector<ArrayPart> parts = planArrays(numbers, 9000, 1, 10000);
  ASSERT_EQ(parts.size(), 2U);
  EXPECT_EQ(elementsText(parts[0].elements).size(), 3999U);
  EXPECT_EQ(parts[0].elements.back(), 4996);
}

struct SpanCase {
  ArrayLayout layout;
  std::int32_t element;
  std::int64_t first;
  std::int64_t last;
};

TEST(ArrayLayout, SaysWhichTasksAnElementRuns) {
  const SpanCase cases[] = {
      {{0, 1, 9}, 7, 7, 7},
      {{1000, 1, 1200}, 7, 1007, 1007},
      {{3, 5, 17}, 1, 8, 12},
      {{3, 5, 17}, 2, 13, 17},
      {{3, 5, 16}, 2, 13, 16},
      {{3, largest, 4}, 0, 3, 4},
      {{largest, largest, largest}, largest, 4611686016279904256, largest},
  };
  for (const SpanCase& row : cases) {
    const TaskSpan span = tasksOf(row.layout, row.element);
    EXPECT_EQ(span.first, row.first) << row.element;
    EXPECT_EQ(span.last, row.last) << row.element;
  }
}

TEST(ArrayLayout, NamesTheLogsOfChunksAsTheirArraysDo) {
  EXPECT_EQ(chunkLogName("shot", {1, 5, 10}, 0, 10), "shot-chunk-0.log");
  EXPECT_EQ(chunkLogName("shot", {1, 10, 101}, 10, 101), "shot-chunk-10.log");
  EXPECT_EQ(chunkLogName("shot", {3, 10, 101}, 2, 101), "shot-chunk-02.log");
  EXPECT_EQ(chunkLogName("shot", {22, 2, 27}, 2, 27), "shot-chunk-12.log");
}

}  // namespace
}  // namespace runlet_tool
