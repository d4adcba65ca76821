// Behaviour of runlet-job on a terminal.

#include "tool/text/terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <thread>

#include "pseudo_terminal.h"
#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

constexpr char job[] =
    "<J><cmdData><Arguments>{/bin/echo %x}</Arguments><TaskTimeout>1</TaskTimeout><uid>7</uid>"
    "<gid>7</gid><TaskList><Task><Params>{a}</Params></Task></TaskList><JobParams/></cmdData></J>";

std::string writtenByTool(const std::vector<std::string>& arguments,
                          const std::vector<std::pair<std::string, std::string>>& environment) {
  const Terminal terminal;
  ProcessOptions options = tool(arguments);
  options.environment.emplace_back("TERM", "xterm");
  options.environment.insert(options.environment.end(), environment.begin(), environment.end());
  options.prepare = [&] { openAs(STDOUT_FILENO, terminal.name(), O_WRONLY | O_NOCTTY); };
  runProcess(options);
  return terminal.written();
}

class ToolOnATerminal : public testing::Test {
 protected:
  TempFolder folder_;
  const std::string job_ = folder_.write("job.xml", job);
};

TEST_F(ToolOnATerminal, HasColours) {
  EXPECT_NE(writtenByTool({"check", job_}, {}).find("\033[1;33mwarning RJ065\033[0m"),
            std::string::npos);
  EXPECT_NE(writtenByTool({"expand", job_}, {}).find("\033[1;36mtask 1\033[0m"), std::string::npos);
}

TEST_F(ToolOnATerminal, HasNoColoursIfTheyAreNotWanted) {
  const std::vector<std::vector<std::pair<std::string, std::string>>> environments = {
      {{"NO_COLOR", "1"}}, {{"TERM", "dumb"}}};
  for (const auto& environment : environments) {
    const std::string text = writtenByTool({"check", job_}, environment);
    EXPECT_NE(text.find("warning RJ065"), std::string::npos);
    EXPECT_EQ(text.find('\033'), std::string::npos);
  }
  EXPECT_NE(writtenByTool({"check", job_}, {{"NO_COLOR", ""}}).find('\033'), std::string::npos);
}

TEST_F(ToolOnATerminal, HasNoColoursElsewhere) {
  EXPECT_EQ(runTool({"check", job_}).output.find('\033'), std::string::npos);
}

// Redirects standard error of this process to a terminal during its lifetime.
class OnTerminal {
 public:
  explicit OnTerminal(const Terminal& terminal) : old_(dup(STDERR_FILENO)) {
    openAs(STDERR_FILENO, terminal.name(), O_WRONLY | O_NOCTTY);
  }
  ~OnTerminal() {
    dup2(old_, STDERR_FILENO);
    close(old_);
  }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

 private:
  int old_;
};

// Half of the work within the time after which the bar is shown.
void workFor(std::chrono::milliseconds time, std::size_t total) {
  runlet_tool::Progress progress("working", total);
  progress.show(0);
  std::this_thread::sleep_for(time);
  progress.show(512);
}

TEST(ProgressBar, IsShownForWhatTakesOverASecondAndThenErased) {
  const Terminal terminal;
  {
    const OnTerminal on(terminal);
    workFor(std::chrono::milliseconds(1050), 1024);
  }
  EXPECT_EQ(terminal.written(),
            "\rworking [" + std::string(20, '#') + std::string(20, ' ') + "] 50%\033[K\r\033[K");
}

// A line that is as wide as the terminal would move the cursor to the next one.
TEST(ProgressBar, FitsIntoTheTerminal) {
  const struct {
    std::size_t columns;
    std::string line;
  } rows[] = {
      {80, "working [" + std::string(10, '#') + std::string(30, ' ') + "] 1 of 4"},
      {58, "working [" + std::string(10, '#') + std::string(30, ' ') + "] 1 of 4"},
      {57, "working [" + std::string(9, '#') + std::string(30, ' ') + "] 1 of 4"},
      {29, "working [##         ] 1 of 4"},
      {28, "working [##        ] 1 of 4"},
      {27, "working 1 of 4"},
      {15, "working 1 of 4"},
      {14, "working 1 of "},
      {1, ""},
  };
  for (const auto& row : rows) {
    const std::string line = runlet_tool::progressLine("working", 1, 4, "1 of 4", row.columns);
    EXPECT_EQ(line, row.line) << row.columns;
    EXPECT_LT(line.size(), row.columns);
  }
}

// As many details as fit, each of them whole.
TEST(ProgressBar, LeavesOutDetails) {
  const struct {
    std::size_t columns;
    const char* line;
  } rows[] = {
      {36, "running 1 of 4, 3 running, 2 failed"},
      {35, "running 1 of 4, 3 running"},
      {28, "running 1 of 4, 3 running"},
      {27, "running 1 of 4, 3 running"},
      {26, "running 1 of 4, 3 running"},
      {25, "running 1 of 4"},
      {15, "running 1 of 4"},
      {14, "running 1 of "},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(
        runlet_tool::progressLine("running", 1, 4, "1 of 4, 3 running, 2 failed", row.columns),
        row.line)
        << row.columns;
  }
}

TEST(ProgressBar, FollowsTheWidthOfTheTerminal) {
  const Terminal terminal;
  {
    const OnTerminal on(terminal);
    runlet_tool::Progress progress("working", 4);
    for (const int columns : {30, 20}) {
      winsize size{};
      size.ws_col = static_cast<unsigned short>(columns);
      ASSERT_EQ(ioctl(STDERR_FILENO, TIOCSWINSZ, &size), 0);
      progress.draw(2, "2 of 4");
      progress.erase();
    }
  }
  EXPECT_EQ(terminal.written(),
            "\rworking [######      ] 2 of 4\033[K\r\033[K\rworking 2 of 4\033[K\r\033[K");
}

TEST(ProgressBar, IsNotShownForLessOrWithoutATerminal) {
  const Terminal terminal;
  {
    const OnTerminal on(terminal);
    workFor(std::chrono::milliseconds(10), 1024);
    workFor(std::chrono::milliseconds(1050), 0);
  }
  EXPECT_EQ(terminal.written(), "");
  testing::internal::CaptureStderr();
  workFor(std::chrono::milliseconds(1050), 1024);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace runlet_test
