// How tasks ended, and how that is described.

#include <gtest/gtest.h>

#include "tool/record/ends.h"

namespace runlet_tool {
namespace {

// Wait statuses: an exit code in the second byte, or a signal in the first.
TEST(TaskEnd, IsReadFromAWaitStatus) {
  struct Row {
    int waitStatus;
    TaskEnd end;
  };
  const Row rows[] = {
      {0, {Ending::succeeded, 0, ""}},       {3 << 8, {Ending::failed, 3, ""}},
      {255 << 8, {Ending::failed, 255, ""}}, {9, {Ending::killed, 9, ""}},
      {11 | 0x80, {Ending::killed, 11, ""}},  // with a core file
  };
  for (const Row& row : rows) EXPECT_EQ(endOfStatus(row.waitStatus), row.end) << row.waitStatus;
}

struct TextRow {
  Ending ending;
  int number;
  const char* word;
  const char* text;

  TaskEnd end() const {
    return {ending, number, word};
  }
};

constexpr TextRow textRows[] = {
    {Ending::succeeded, 0, "", "succeeded"},
    {Ending::failed, 3, "", "failed with exit code 3"},
    {Ending::killed, 9, "", "killed by signal 9 (Killed)"},
    {Ending::killed, 11, "", "killed by signal 11 (Segmentation fault)"},
    {Ending::timedOut, 0, "", "timed out"},
    {Ending::interrupted, 0, "", "interrupted"},
    {Ending::notStarted, 0, "", "not started"},
    {Ending::other, 0, "node_fail", "node_fail"},
};

TEST(TaskEnd, IsDescribedInWords) {
  for (const TextRow& row : textRows) EXPECT_EQ(describe(row.end()), row.text);
}

}  // namespace
}  // namespace runlet_tool
