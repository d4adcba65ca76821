// Frame lists: the resulting tasks, and what is refused.

#include <gtest/gtest.h>

#include <vector>

#include "tool/make/frames.h"

namespace runlet_tool {
namespace {

struct GoodRow {
  const char* list;
  std::int32_t chunk;
  std::vector<std::string> tasks;
};

TEST(FrameList, GivesItsTasks) {
  const std::vector<GoodRow> rows = {
      {"7", 1, {"frame 7\t7\t7"}},
      {"0", 1, {"frame 0\t0\t0"}},
      {"007", 1, {"frame 7\t7\t7"}},
      {"-3", 1, {"frame -3\t-3\t-3"}},
      {"3,1,2", 1, {"frame 3\t3\t3", "frame 1\t1\t1", "frame 2\t2\t2"}},
      {"4-6", 1, {"frame 4\t4\t4", "frame 5\t5\t5", "frame 6\t6\t6"}},
      {"5-5", 1, {"frame 5\t5\t5"}},
      {"5-5x9", 1, {"frame 5\t5\t5"}},
      {"-2-1x3", 1, {"frame -2\t-2\t-2", "frame 1\t1\t1"}},
      {"-10--8", 2, {"frames -10--9\t-10\t-9", "frame -8\t-8\t-8"}},
      {"1-5", 5, {"frames 1-5\t1\t5"}},
      {"1-5", 100, {"frames 1-5\t1\t5"}},
      {"1-5", 2147483647, {"frames 1-5\t1\t5"}},
      {"1-5", 2, {"frames 1-2\t1\t2", "frames 3-4\t3\t4", "frame 5\t5\t5"}},
      // the last frame of a task is a rendered one, not the end of the range
      {"1-10x4", 10, {"frames 1-9\t1\t9"}},
      {"1-10x4", 2, {"frames 1-5\t1\t5", "frame 9\t9\t9"}},
      // a task never spans two ranges
      {"1-3,4-6", 4, {"frames 1-3\t1\t3", "frames 4-6\t4\t6"}},
      {"1-40x2,150", 10, {"frames 1-19\t1\t19", "frames 21-39\t21\t39", "frame 150\t150\t150"}},
      // ranges may overlap as long as they share no frame
      {"1-9x2,2-8x2", 9, {"frames 1-9\t1\t9", "frames 2-8\t2\t8"}},
      {"0-100x50,7", 3, {"frames 0-100\t0\t100", "frame 7\t7\t7"}},
      {"-2147483648-2147483647x1000",
       4000000,
       {"frames -2147483648-1852515352	-2147483648	1852515352",
        "frames 1852516352-2147483352	1852516352	2147483352"}},
      {"2147483646-2147483647x2147483647", 1, {"frame 2147483646\t2147483646\t2147483646"}},
  };
  for (const GoodRow& row : rows) {
    SCOPED_TRACE(row.list);
    runlet::StringList tasks;
    std::string reason;
    EXPECT_TRUE(appendFrameTasks(row.list, row.chunk, &tasks, &reason)) << reason;
    EXPECT_EQ(tasks, row.tasks);
  }
}

TEST(FrameList, AppendsToExistingTasks) {
  runlet::StringList tasks;
  tasks.emplace_back("set up");
  std::string reason;
  EXPECT_TRUE(appendFrameTasks("1", 1, &tasks, &reason));
  EXPECT_EQ(tasks, (std::vector<std::string>{"set up", "frame 1\t1\t1"}));
}

TEST(FrameList, HasUpToAMillionTasks) {
  runlet::StringList tasks;
  std::string reason;
  EXPECT_TRUE(appendFrameTasks("1-999999,0", 1, &tasks, &reason)) << reason;
  EXPECT_EQ(tasks.size(), 1000000U);
  EXPECT_FALSE(appendFrameTasks("1-1000000,0", 1, &tasks, &reason));
  EXPECT_EQ(reason, "1000001 tasks; the limit is one million");
  EXPECT_FALSE(appendFrameTasks("-2147483648-2147483647x1000", 4, &tasks, &reason));
  EXPECT_EQ(reason, "1073742 tasks; the limit is one million");
  EXPECT_TRUE(appendFrameTasks("1-2000000", 2, &tasks, &reason)) << reason;
}

TEST(FrameList, HasUpToTenMillionFrames) {
  runlet::StringList tasks;
  std::string reason;
  EXPECT_TRUE(appendFrameTasks("1-9999999,0", 1000, &tasks, &reason)) << reason;
  EXPECT_EQ(tasks.size(), 10001U);
  EXPECT_FALSE(appendFrameTasks("1-10000000,0", 1000, &tasks, &reason));
  EXPECT_EQ(reason, "10000001 frames; the limit is ten million");
  EXPECT_EQ(tasks.size(), 10001U);
}

// The maximum length of a command-line word. Comparing all pairs would take minutes.
TEST(FrameList, MayHaveThousandsOfRanges) {
  std::string list;
  for (int first = 1; first <= 6000; ++first) {
    list += std::to_string(first) + "-2147483647x2100000,";
  }
  runlet::StringList tasks;
  std::string reason;
  EXPECT_TRUE(appendFrameTasks(list + "0", 2000, &tasks, &reason)) << reason;
  EXPECT_EQ(tasks.size(), 6001U);
  EXPECT_FALSE(appendFrameTasks(list + "2100001", 2000, &tasks, &reason));
  EXPECT_EQ(reason, "frame 2100001 is given twice");
}

struct BadRow {
  const char* list;
  const char* reason;
};

TEST(FrameList, RefusesInvalidLists) {
  constexpr BadRow rows[] = {
      {"", "'': expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"a", "a: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1,", "'': expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {",1", "'': expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1,,2", "'': expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1 ", "'1 ': expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1, 2", "' 2': expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"+1", "+1: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"-", "-: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"--1", "--1: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1-", "1-: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1--", "1--: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1-2-3", "1-2-3: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1-2x", "1-2x: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1-2y3", "1-2y3: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1-2x3x4", "1-2x3x4: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1-2X3", "1-2X3: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1x2", "1x2: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1.5", "1.5: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"1;2", "'1;2': expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"0x10", "0x10: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"2147483648", "2147483648: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"-2147483649", "-2147483649: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"99999999999999999999",
       "99999999999999999999: expected FRAME, FIRST-LAST or FIRST-LASTxSTEP"},
      {"2-1", "2-1: the first frame comes after the last"},
      {"1--1", "1--1: the first frame comes after the last"},
      {"9,3-2x0", "3-2x0: the first frame comes after the last"},
      {"1-9x0", "1-9x0: the step is below 1"},
      {"1-9x-1", "1-9x-1: the step is below 1"},
      {"1,1", "frame 1 is given twice"},
      {"1-9,5", "frame 5 is given twice"},
      {"5,1-9", "frame 5 is given twice"},
      {"1-9x2,2-8x3", "frame 5 is given twice"},
      {"1-100x7,2-100x5", "frame 22 is given twice"},
      {"10-20,1-9,20-30", "frame 20 is given twice"},
      {"-5--1,-3", "frame -3 is given twice"},
      {"1-2147483647x46337,2-2147483647x46339", "frame 1073581954 is given twice"},
      {"-2147483648-2147483647x1000,352", "frame 352 is given twice"},
      {"-2147483648-2147483647,0", "4294967297 frames; the limit is ten million"},
  };
  for (const BadRow& row : rows) {
    SCOPED_TRACE(row.list);
    runlet::StringList tasks;
    std::string reason;
    EXPECT_FALSE(appendFrameTasks(row.list, 1, &tasks, &reason));
    EXPECT_EQ(reason, row.reason);
    EXPECT_TRUE(tasks.empty());
  }
}

// Every pair of short ranges, compared with the enumerated frames.
TEST(FrameList, DetectsARepeatedFrame) {
  for (int first = 0; first < 6; ++first) {
    for (int last = first; last < 14; ++last) {
      for (int step = 1; step < 7; ++step) {
        std::vector<bool> has(32);
        for (int frame = 2; frame <= 11; frame += 3) has[static_cast<std::size_t>(frame)] = true;
        bool repeated = false;
        for (int frame = first; frame <= last; frame += step) {
          repeated = repeated || has[static_cast<std::size_t>(frame)];
        }
        const std::string list = "2-12x3," + std::to_string(first) + "-" + std::to_string(last) +
                                 "x" + std::to_string(step);
        runlet::StringList tasks;
        std::string reason;
        EXPECT_EQ(appendFrameTasks(list, 1, &tasks, &reason), !repeated) << list << reason;
      }
    }
  }
}

}  // namespace
}  // namespace runlet_tool
