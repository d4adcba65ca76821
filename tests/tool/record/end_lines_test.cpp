// Lines about the ends of tasks, written and read back.

#include <gtest/gtest.h>

#include "tool/record/ends.h"

namespace runlet_tool {
namespace {

const TaskEnd succeeded = {Ending::succeeded, 0, ""};
const TaskEnd unknown = {Ending::other, 0, "unknown"};

TEST(EndLines, AreOneForEachKindOfEnd) {
  const std::vector<TaskEnd> ends = {
      succeeded,
      succeeded,
      {Ending::failed, 3, ""},
      succeeded,
      {Ending::failed, 4, ""},
      {Ending::failed, 3, ""},
      {Ending::killed, 9, ""},
      {Ending::timedOut, 0, ""},
      {Ending::interrupted, 0, ""},
      {Ending::notStarted, 0, ""},
      {Ending::other, 0, "cannot open log (No such file or directory)"},
      {Ending::other, 0, "another"},
  };
  const std::vector<std::int32_t> tasks = {3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 20};
  const std::string text = endLines("x:1_2", tasks, ends);
  EXPECT_EQ(text,
            "runlet-job-ends x:1_2 succeeded 0 3-4,6\n"
            "runlet-job-ends x:1_2 failed 3 5,8\n"
            "runlet-job-ends x:1_2 failed 4 7\n"
            "runlet-job-ends x:1_2 killed 9 9\n"
            "runlet-job-ends x:1_2 timed-out 0 10\n"
            "runlet-job-ends x:1_2 interrupted 0 11\n"
            "runlet-job-ends x:1_2 not-started 0 12\n"
            "runlet-job-ends x:1_2 other 0 13,20\n");
  std::vector<TaskEnd> read(tasks.size());
  readEndLines("before\n" + text + "after", "x:1_2", tasks, &read);
  std::vector<TaskEnd> expected = ends;
  expected[10] = expected[11] = unknown;
  EXPECT_EQ(read, expected);
}

TEST(EndLines, AreReadForTheRequestedTasks) {
  const TaskEnd before = {Ending::failed, 1, ""};
  std::vector<TaskEnd> ends(4, before);
  readEndLines("runlet-job-ends i succeeded 0 1-3,5-2147483647\nrunlet-job-ends i killed 64 50\n",
               "i", {3, 4, 50, 99}, &ends);
  EXPECT_EQ(ends, (std::vector<TaskEnd>{succeeded, before, {Ending::killed, 64, ""}, succeeded}));
}

TEST(EndLines, AreIgnoredUnlessWellFormed) {
  const TaskEnd before = {Ending::failed, 1, ""};
  for (const char* text : {
           "",
           "\n",
           "runlet-job-ends i succeeded 0 3",  // incomplete
           "runlet-job-ends j succeeded 0 3\n",
           "runlet-job-ends i1 succeeded 0 3\n",
           " runlet-job-ends i succeeded 0 3\n",
           "xrunlet-job-ends i succeeded 0 3\n",
           "runlet-job-ends i succeeded 0 3 4\n",
           "runlet-job-ends  i succeeded 0 3\n",
           "runlet-job-ends i succeeded 3\n",
           "runlet-job-ends i succeeded 1 3\n",
           "runlet-job-ends i succeeded -0 3\n",
           "runlet-job-ends i succeeded x 3\n",
           "runlet-job-ends i \033[31m 0 3\n",
           "runlet-job-ends i failed 0 3\n",
           "runlet-job-ends i failed 256 3\n",
           "runlet-job-ends i failed 99999999999 3\n",
           "runlet-job-ends i killed 0 3\n",
           "runlet-job-ends i killed 65 3\n",
           "runlet-job-ends i timed-out 0 \n",
           "runlet-job-ends i timed-out 0 x\n",
           "runlet-job-ends i timed-out 0 -3\n",
           "runlet-job-ends i timed-out 0 ,3\n",
           "runlet-job-ends i timed-out 0 4-3\n",
           "runlet-job-ends i timed-out 0 3-99999999999\n",
           "runlet-job-ends i timed-out 0 4,3\n",
           "runlet-job-ends i timed-out 0 0,0-5\n",
           "task 3: succeeded: x\n",
       }) {
    std::vector<TaskEnd> ends = {before};
    readEndLines(text, "i", {3}, &ends);
    EXPECT_EQ(ends, std::vector<TaskEnd>{before}) << text;
  }
}

TEST(EndLines, HaveAnIdThatIsOneWord) {
  for (const char* id : {"a", "0123456789abcdef:12_4000000", "_", "Z"}) {
    EXPECT_TRUE(isEndLinesId(id)) << id;
  }
  for (const char* id : {"", "a b", "a\n", "-x", "a\033", "\xc3\xa4"}) {
    EXPECT_FALSE(isEndLinesId(id)) << id;
  }
}

}  // namespace
}  // namespace runlet_tool
