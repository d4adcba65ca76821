// The summary of all tasks after the last one has ended.

#include "tool/batch/summary.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tool/system/exit_status.h"

namespace runlet_tool {
namespace {

// A job of `taskCount` tasks that each print their number, of which `tasks` are selected.
void fill(int taskCount, const std::vector<std::int32_t>& tasks, Batch* batch) {
  batch->context.arguments = "say %tn %tp1";
  for (int i = 0; i < taskCount; ++i) batch->context.taskList.emplace_back("\"of it\"");
  batch->tasks = tasks;
  batch->attempts.assign(tasks.size(), 1);
  batch->name = "shot";
  batch->folder = "/work";
  batch->logFolder = "/logs/of shots";
}

std::string summaryOf(const Batch& batch, const std::vector<TaskEnd>& ends, int* status,
                      const SummaryOptions& options = {}) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* out = open_memstream(&text, &size);
  *status = writeSummary(batch, ends, options, out);
  std::fclose(out);
  const std::string summary(text, size);
  std::free(text);
  return summary;
}

const TaskEnd succeeded = {Ending::succeeded, 0, ""};

TEST(Summary, HasALineForEveryTaskAndOneForAll) {
  Batch batch;
  fill(12, {1, 2, 3, 4, 5, 6, 7, 8, 10, 12}, &batch);
  const std::vector<TaskEnd> ends = {
      succeeded,
      {Ending::failed, 3, ""},
      {Ending::killed, 9, ""},
      {Ending::timedOut, 0, ""},
      {Ending::other, 0, "node_fail"},
      {Ending::failed, 127, ""},
      {Ending::failed, 126, ""},
      {Ending::interrupted, 0, ""},
      {Ending::notStarted, 0, ""},
      succeeded,
  };
  int status = -1;
  EXPECT_EQ(summaryOf(batch, ends, &status),
            "task 2: failed with exit code 3: say 2 'of it'\n"
            "  log: '/logs/of shots/shot-02.log'\n"
            "task 3: killed by signal 9 (Killed): say 3 'of it'\n"
            "  log: '/logs/of shots/shot-03.log'\n"
            "task 4: timed out: say 4 'of it'\n"
            "  log: '/logs/of shots/shot-04.log'\n"
            "task 5: node_fail: say 5 'of it'\n"
            "  log: '/logs/of shots/shot-05.log'\n"
            "task 6: failed with exit code 127 (program not found): say 6 'of it'\n"
            "  log: '/logs/of shots/shot-06.log'\n"
            "task 7: failed with exit code 126 (program not executable): say 7 'of it'\n"
            "  log: '/logs/of shots/shot-07.log'\n"
            "task 8: interrupted: say 8 'of it'\n"
            "  log: '/logs/of shots/shot-08.log'\n"
            "task 1: succeeded: say 1 'of it'\n"
            "task 12: succeeded: say 12 'of it'\n"
            "10 tasks: 2 succeeded, 3 failed (2, 6-7), 1 killed (3), 1 timed out (4), "
            "1 interrupted (8), 1 not started (10), 1 node_fail (5)\n");
  EXPECT_EQ(status, exitFailing);
}

TEST(Summary, HasNoLinesForTasksThatWereNotStarted) {
  Batch batch;
  fill(4, {1, 2, 3, 4}, &batch);
  const TaskEnd notStarted = {Ending::notStarted, 0, ""};
  int status = -1;
  EXPECT_EQ(summaryOf(batch, {notStarted, succeeded, {Ending::failed, 3, ""}, notStarted}, &status,
                      {false, "1 task failed (--halt soon)"}),
            "task 3: failed with exit code 3: say 3 'of it'\n"
            "  log: '/logs/of shots/shot-3.log'\n"
            "task 2: succeeded: say 2 'of it'\n"
            "stopped early: 1 task failed (--halt soon)\n"
            "4 tasks: 1 succeeded, 1 failed (3), 2 not started (1, 4)\n");
}

TEST(Summary, LeavesOutWhatSucceededIfQuiet) {
  Batch batch;
  fill(3, {1, 2, 3}, &batch);
  int status = -1;
  EXPECT_EQ(summaryOf(batch, {succeeded, {Ending::failed, 3, ""}, succeeded}, &status, {true, ""}),
            "task 2: failed with exit code 3: say 2 'of it'\n"
            "  log: '/logs/of shots/shot-2.log'\n"
            "3 tasks: 2 succeeded, 1 failed (2)\n");
  EXPECT_EQ(summaryOf(batch, {succeeded, succeeded, succeeded}, &status, {true, ""}),
            "3 tasks: 3 succeeded\n");
  EXPECT_EQ(status, exitFine);
}

TEST(Summary, IsASuccessOnlyIfAllHaveSucceeded) {
  Batch batch;
  fill(2, {1, 2}, &batch);
  int status = -1;
  EXPECT_EQ(summaryOf(batch, {succeeded, succeeded}, &status),
            "task 1: succeeded: say 1 'of it'\ntask 2: succeeded: say 2 'of it'\n"
            "2 tasks: 2 succeeded\n");
  EXPECT_EQ(status, exitFine);
  summaryOf(batch, {succeeded, {Ending::notStarted, 0, ""}}, &status);
  EXPECT_EQ(status, exitFailing);
  summaryOf(batch, {{Ending::failed, 1, ""}, {Ending::failed, 1, ""}}, &status);
  EXPECT_EQ(status, exitFailing);
}

}  // namespace
}  // namespace runlet_tool
