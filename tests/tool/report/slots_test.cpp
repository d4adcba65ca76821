// What ran at the same time.

#include "tool/report/slots.h"

#include <gtest/gtest.h>

namespace runlet_tool {
namespace {

TEST(Slots, AreTheLowestThatAreFree) {
  const struct {
    std::vector<Span> spans;
    std::vector<std::size_t> slots;
  } rows[] = {
      {{}, {}},
      {{{1, 2}}, {0}},
      {{{1, 2}, {2, 3}}, {0, 0}},
      {{{1, 3}, {2, 4}, {3, 5}}, {0, 1, 0}},
      {{{2, 4}, {1, 3}}, {1, 0}},  // in any order
      {{{1, 9}, {1, 2}, {1, 3}, {4, 5}}, {0, 1, 2, 1}},
      {{{1, 1}, {1, 1}}, {0, 0}},  // without a duration
  };
  for (const auto& row : rows) EXPECT_EQ(assignSlots(row.spans), row.slots);
}

TEST(Load, IsTheAverageNumberAtATime) {
  const struct {
    std::vector<Span> spans;
    Span time;
    std::vector<double> load;
  } rows[] = {
      {{}, {0, 4}, {0, 0, 0, 0}},
      {{{0, 4}}, {0, 4}, {1, 1, 1, 1}},
      {{{1, 3}}, {0, 4}, {0, 1, 1, 0}},
      {{{0.5, 1.5}, {1, 2}}, {0, 4}, {0.5, 1.5, 0, 0}},
      {{{0.25, 0.5}}, {0, 4}, {0.25, 0, 0, 0}},
      {{{-3, 1}, {3, 9}, {7, 8}}, {0, 4}, {1, 0, 0, 1}},  // partly outside
      {{{10, 30}}, {10, 50}, {1, 1, 0, 0}},
      {{{1, 2}}, {1, 1}, {0, 0, 0, 0}},  // no time
  };
  for (const auto& row : rows) EXPECT_EQ(loadOver(row.spans, row.time, 4), row.load);
}

}  // namespace
}  // namespace runlet_tool
