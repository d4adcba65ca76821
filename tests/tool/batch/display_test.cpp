// What is shown while tasks run, on a terminal and elsewhere.

#include "tool/batch/display.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <regex>
#include <string>
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

// A variable of the environment during its lifetime.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    const char* const before = std::getenv(name);
    isSet_ = before != nullptr;
    if (isSet_) before_ = before;
    setenv(name, value, 1);
  }
  ~Variable() {
    isSet_ ? setenv(name_, before_.c_str(), 1) : unsetenv(name_);
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name_;
  bool isSet_ = false;
  std::string before_;
};

// What `show` writes to a terminal.
template <typename Show>
std::string shownOnTerminal(bool isQuiet, bool hasColour, const Show& show) {
  const Variable terminalKind("TERM", "xterm");
  const Variable noColour("NO_COLOR", hasColour ? "" : "1");
  const runlet_test::Terminal terminal;
  const int before = dup(STDERR_FILENO);
  runlet_test::openAs(STDERR_FILENO, terminal.name(), O_WRONLY | O_NOCTTY);
  {
    RunDisplay display(numbers, logOf, isQuiet);
    show(&display);
  }
  dup2(before, STDERR_FILENO);
  close(before);
  return terminal.written();
}

// Messages do not run into the bar.
TEST(RunDisplay, HasABarOnATerminal) {
  const std::string written = shownOnTerminal(false, false, [](RunDisplay* display) {
    display->refresh({0, 0, 2});
    display->showEnd(1, tryOf({Ending::succeeded, 0, ""}, 0.3), true, {1, 0, 1});
    std::this_thread::sleep_for(milliseconds(1050));
    display->refresh({1, 0, 1});
    display->showEnd(1, tryOf({Ending::failed, 2, ""}, 0.3), true, {2, 1, 1});
    std::this_thread::sleep_for(milliseconds(150));
    display->refresh({2, 1, 1});
    display->showMessage("no");
    std::this_thread::sleep_for(milliseconds(150));
    display->refresh({2, 1, 1, true});
    display->showInterrupt(SIGINT, milliseconds(10'000), {});
  });
  const std::string left = "[^,]+ left\033\\[K\r\033\\[K";
  const std::regex form(
      "\rrunning \\[#{5,10} {15,30}\\] 1 of 4, 1 running, " + left +
      "task 5: failed with exit code 2 after 300 ms \\(2 of 4\\), log: '/logs/of shot-1'\r\n"
      "\rrunning \\[#{10,20} {10,20}\\] 2 of 4, 1 running, 1 failed, " +
      left +
      "runlet-job: run: no\r\n\rrunning \\[#{10,20} {10,20}\\] 2 of 4, 1 running, 1 failed"
      "\033\\[K\r\033\\[Kinterrupted by signal 2 \\(Interrupt\\)\r\n");
  EXPECT_TRUE(std::regex_match(written, form)) << written;
}

// Only they have lines there, and only when they are not tried again.
TEST(RunDisplay, ShowsFailuresOnATerminal) {
  const struct {
    TaskEnd end;
    bool isFinal;
    std::string what;  // empty = no line
  } rows[] = {
      {{Ending::failed, 2, ""}, true, "failed with exit code 2"},
      {{Ending::failed, 2, ""}, false, ""},
      {{Ending::timedOut, 0, ""}, true, "timed out"},
      {{Ending::killed, SIGKILL, ""}, true, "killed by signal 9 (Killed)"},
      {{Ending::other, 0, "cannot open log (\033)"}, true, "cannot open log (\\x1b)"},
      {{Ending::succeeded, 0, ""}, true, ""},
      {{Ending::interrupted, 0, ""}, true, ""},
      {{Ending::notStarted, 0, ""}, true, ""},
  };
  for (const auto& row : rows) {
    const auto show = [&](RunDisplay* display) {
      display->showEnd(1, tryOf(row.end, 0.3), row.isFinal, {3, 1, 0});
    };
    const std::string end = " after 300 ms (3 of 4), log: '/logs/of shot-1'\r\n";
    const bool hasLine = !row.what.empty();
    EXPECT_EQ(shownOnTerminal(false, false, show), hasLine ? "task 5: " + row.what + end : "");
    EXPECT_EQ(shownOnTerminal(false, true, show),
              hasLine ? "task 5: \033[1;31m" + row.what + "\033[0m" + end : "");
    EXPECT_EQ(shownOnTerminal(true, true, show), "");
  }
}

}  // namespace
}  // namespace runlet_tool
