// What is shown while tasks run, on a terminal and elsewhere.

#include "tool/batch/display.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <regex>
#include <thread>

#include "process.h"
#include "pseudo_terminal.h"

namespace runlet_tool {
namespace {

using std::chrono::milliseconds;

const std::vector<std::int32_t> numbers = {2, 5, 9, 10};

std::string logOf(std::size_t task) {
  return "/logs/of shot-" + std::to_string(task);
}

// What `show` writes to standard error.
template <typename Show>
std::string shown(bool isQuiet, const Show& show) {
  testing::internal::CaptureStderr();
  {
    RunDisplay display(numbers, logOf, isQuiet);
    show(&display);
  }
  return testing::internal::GetCapturedStderr();
}

TaskTry tryOf(const TaskEnd& end, double wall, pid_t process = 7) {
  TaskTry attempt;
  attempt.end = end;
  attempt.wall = wall;
  attempt.process = process;
  return attempt;
}

TEST(RunDisplay, HasALineForEachTry) {
  const struct {
    TaskTry attempt;
    bool isFinal;
    const char* line;
  } rows[] = {
      {tryOf({Ending::succeeded, 0, ""}, 1.23), true, "task 5: succeeded in 1.2 s (3 of 4)\n"},
      {tryOf({Ending::failed, 2, ""}, 0.3), true,
       "task 5: failed with exit code 2 after 300 ms (3 of 4), log: '/logs/of shot-1'\n"},
      {tryOf({Ending::killed, SIGKILL, ""}, 200), false,
       "task 5: killed by signal 9 (Killed) after 3 min 20 s, will be tried again, log: '/logs/of "
       "shot-1'\n"},
      {tryOf({Ending::other, 0, "cannot open log (\033)"}, 0, 0), true,
       "task 5: cannot open log (\\x1b) (3 of 4), log: '/logs/of shot-1'\n"},
  };
  for (const auto& row : rows) {
    const auto show = [&](RunDisplay* display) {
      display->showEnd(1, row.attempt, row.isFinal, {3, 1, 0});
    };
    EXPECT_EQ(shown(false, show), row.line);
    EXPECT_EQ(shown(true, show), "");
  }
}

TEST(RunDisplay, SaysWhenADiskIsFull) {
  TaskTry attempt = tryOf({Ending::succeeded, 0, ""}, 1.23);
  attempt.isDiskFull = true;
  EXPECT_EQ(shown(true,
                  [&](RunDisplay* display) {
                    display->showEnd(1, attempt, true, {3, 1, 0});
                  }),
            "runlet-job: run: task 5: its log may be incomplete, the disk is full: "
            "'/logs/of shot-1'\n");
}

TEST(RunDisplay, SaysWhatAnInterruptWaitsFor) {
  const struct {
    std::vector<std::size_t> running;
    const char* line;
  } rows[] = {
      {{}, "interrupted by signal 15 (Terminated)\n"},
      {{2},
       "interrupted by signal 15 (Terminated): waiting up to 10 s for 1 running task (9); "
       "interrupt "
       "again to kill it\n"},
      {{3, 0, 2},
       "interrupted by signal 15 (Terminated): waiting up to 10 s for 3 running tasks (2, 9-10); "
       "interrupt again to kill them\n"},
  };
  for (const auto& row : rows) {
    for (const bool isQuiet : {false, true}) {
      EXPECT_EQ(shown(isQuiet,
                      [&](RunDisplay* display) {
                        display->showInterrupt(SIGTERM, milliseconds(10'000), row.running);
                      }),
                row.line);
    }
  }
}

// Messages do not run into the bar.
TEST(RunDisplay, HasABarOnATerminal) {
  const runlet_test::Terminal terminal;
  const int before = dup(STDERR_FILENO);
  runlet_test::openAs(STDERR_FILENO, terminal.name(), O_WRONLY | O_NOCTTY);
  {
    RunDisplay display(numbers, logOf, false);
    display.refresh({0, 0, 2});
    display.showEnd(1, tryOf({Ending::failed, 2, ""}, 0.3), true, {1, 1, 1});
    std::this_thread::sleep_for(milliseconds(1050));
    display.refresh({2, 1, 1});
    display.showMessage("no");
    display.showInterrupt(SIGINT, milliseconds(10'000), {});
  }
  dup2(before, STDERR_FILENO);
  close(before);
  const std::regex form(
      "\rrunning \\[#{10,20} {10,20}\\] 2 of 4, 1 running, 1 failed, [0-9]+\\.[0-9] s left\033\\[K"
      "\r\033\\[Krunlet-job: run: no\r\ninterrupted by signal 2 \\(Interrupt\\)\r\n");
  const std::string written = terminal.written();
  EXPECT_TRUE(std::regex_match(written, form)) << written;
}

}  // namespace
}  // namespace runlet_tool
