// Keeping tasks of other users away from root's terminal.

#include "tool/batch/relay.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <thread>

#include "exec_run.h"
#include "pseudo_terminal.h"
#include "tool/text/characters.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

TEST(VisiblePart, IsWhatATerminalMayReceive) {
  const struct {
    Strings parts;
    std::string shown;
    std::string rest;
  } rows[] = {
      {{""}, "", ""},
      {{"a b~\n\tc"}, "a b~\n\tc", ""},
      {{"\x1b[2J\r\b\a\x7f"}, "\\x1b[2J\\x0d\\x08\\x07\\x7f", ""},
      {{std::string(1, '\0')}, "\\x00", ""},
      {{"\xc3\xa4\xe2\x82\xac\xf0\x9f\x8e\xac"}, "\xc3\xa4\xe2\x82\xac\xf0\x9f\x8e\xac", ""},
      {{"\xc2\x9b\xc2\x80\xc2\xa0"}, "\\xc2\\x9b\\xc2\\x80\xc2\xa0", ""},
      {{"\xe2\x80\xae\xe2\x80\xa2"}, "\\xe2\\x80\\xae\xe2\x80\xa2", ""},
      {{"\x9b\xff\xc0\x80x"}, "\\x9b\\xff\\xc0\\x80x", ""},
      {{"\xc3"}, "", "\xc3"},
      {{"\xc3", "\xa4"}, "\xc3\xa4", ""},
      {{"\xc3", "x"}, "\\xc3x", ""},
      {{"\xe2", "\x82", "\xac"}, "\xe2\x82\xac", ""},
      {{"a\xf0\x9f", "\x8e", ""}, "a", "\xf0\x9f\x8e"},
      {{"\xe0", "\xa0", "\x80"}, "\xe0\xa0\x80", ""},
      {{"\xf4\x8f\xbf"}, "", "\xf4\x8f\xbf"},
      {{"\xed\xa0"}, "\\xed\\xa0", ""},
  };
  for (const auto& row : rows) {
    std::string rest;
    std::string text;
    for (const std::string& part : row.parts) text += runlet_tool::visiblePart(part, &rest);
    EXPECT_EQ(text, row.shown);
    EXPECT_EQ(rest, row.rest) << row.shown;
  }
}

class ExecTerminal : public ExecTest {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    job_.arguments = "/bin/sh script";
    job_.set("uid", "71").set("gid", "72").set("redirectStderr", "no");
  }

  // The task, with the terminal as its controlling terminal and as these streams.
  ProcessOptions onTerminal(const std::string& script, const std::vector<int>& streams,
                            const Strings& more = {}) {
    folder_.write("script", script);
    write(job_);
    ProcessOptions options = exec(task(1, more));
    options.prepare = [this, streams] {
      const int terminal = open(terminal_->name().c_str(), O_RDWR);
      for (const int stream : streams) dup2(terminal, stream);
      close(terminal);
    };
    return options;
  }

  // Asserts the status of a process and its output on the terminal.
  void expectShown(const ProcessOptions& options, const std::string& text,
                   const std::string& status) {
    Process process(options);
    std::string written;
    process.awaitEnd();
    written = terminal_->written();
    const ProcessResult result = process.finish();
    EXPECT_EQ(written, text);
    EXPECT_EQ(describeStatus(result.waitStatus), status);
  }

  std::string calling_ = "Calling '/bin/sh script' from '" + folder() + "'";
  std::unique_ptr<Terminal> terminal_ = std::make_unique<Terminal>();
  Job job_;
};

TEST_F(ExecTerminal, IsNotTheTasksOfAnotherUser) {
  const std::string script =
      "for i in 0 1 2; do [ -t $i ] && echo terminal $i; done\n"
      "readlink /proc/self/fd/0\n"
      "(: >/dev/tty) 2>/dev/null || echo no terminal\n"
      "printf 'a\\033[31m\\r\\303'; echo error >&2; exit 3\n";
  expectShown(onTerminal(script, {0, 1}),
              calling_ + "\r\n/dev/null\r\nno terminal\r\na\\x1b[31m\\x0d\\xc3", "exit 3");
  expectShown(onTerminal("printf '\\033' >&2", {2}), "\\x1b", "exit 0");
  expectShown(onTerminal("echo b; exec >/dev/null 2>&1; sleep 0.1", {1, 2}), calling_ + "\r\nb\r\n",
              "exit 0");
  expectShown(onTerminal("readlink /proc/self/fd/0 >&2", {0}), "", "exit 0");
}

// The task could inject input into it.
TEST_F(ExecTerminal, IsLeftIfNoStreamOfTheTaskIsTheTerminal) {
  const std::string script = "(: >/dev/tty) 2>/dev/null || echo no terminal\n";
  const ProcessOptions options = onTerminal(script, {});
  expectTool(runProcess(options), calling_ + "\nno terminal\n", "", "exit 0");

  ProcessOptions inShell = options;
  inShell.program = "/bin/sh";
  inShell.arguments = {"sh", "-c", "\"$@\"; exit $?", "sh"};
  inShell.arguments.insert(inShell.arguments.end(), options.arguments.begin(),
                           options.arguments.end());
  expectTool(runProcess(inShell), calling_ + "\nno terminal\n", "", "exit 0");
}

TEST_F(ExecTerminal, IsTheTasksOfTheSameUser) {
  job_.set("uid", "0").set("gid", "0");
  expectShown(onTerminal("printf '\\033'; [ -t 0 ] && : >/dev/tty && echo terminal", {0, 1}),
              calling_ + "\r\n\x1bterminal\r\n", "exit 0");
}

TEST_F(ExecTerminal, SendsItsSignalsToTheTask) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    Process process(
        onTerminal("trap 'echo asked; exit 7' INT TERM HUP QUIT\n"
                   "echo ready; while :; do sleep 0.01; done",
                   {0, 2}));
    ASSERT_TRUE(process.readUntil("ready"));
    kill(process.pid(), signal);
    const ProcessResult result = process.finish();
    EXPECT_EQ(result.output, calling_ + "\nready\nasked\n");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 7") << signal;
  }
}

TEST_F(ExecTerminal, EndsATaskThatHasStopped) {
  Process process(onTerminal("trap 'exit 7' TERM; echo ready; kill -STOP $$", {0, 2}));
  ASSERT_TRUE(process.readUntil("ready"));
  std::this_thread::sleep_for(
      std::chrono::milliseconds(100));  // makes the case likely; the test passes without it, too
  kill(process.pid(), SIGTERM);
  EXPECT_EQ(describeStatus(process.finish().waitStatus), "exit 7");
}

TEST_F(ExecTerminal, SeesTheTaskEndByItsSignal) {
  for (const char* signal : {"9", "15", "11"}) {
    expectShown(onTerminal(std::string("kill -") + signal + " $$", {1}), calling_ + "\r\n",
                std::string("signal ") + signal);
  }
}

// It does not wait for background processes of the task.
TEST_F(ExecTerminal, ShowsWhatTheTaskItselfHasWritten) {
  expectShown(onTerminal("sleep 60 & echo done", {1, 2}), calling_ + "\r\ndone\r\n", "exit 0");
}

// More than a pipe usually holds, since the task may have enlarged it, and more than a terminal
// takes at once.
TEST_F(ExecTerminal, ShowsAllThatTheTaskHasWritten) {
  for (const int flags : {0, O_NONBLOCK}) {
    ProcessOptions options = onTerminal(
        "exec perl -e 'fcntl(STDOUT, 1031, 1 << 20); print \"x\" x 900000; print \"end\"'", {1});
    options.prepare = [flags, open = options.prepare] {
      open();
      fcntl(STDOUT_FILENO, F_SETFL, flags);
    };
    Process process(options);
    std::string text;
    for (int i = 0; i < 4000 && !text.ends_with("end"); ++i) {
      text += terminal_->written();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(text == calling_ + "\r\n" + std::string(900000, 'x') + "end") << text.size();
    EXPECT_EQ(describeStatus(process.finish().waitStatus), "exit 0");
  }
}

TEST_F(ExecTerminal, MayCloseWhileTheTaskContinues) {
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0777));
  Process process(onTerminal(
      "trap '' HUP; >ready; until [ -e go ]; do sleep 0.01; done; echo more; exit 4", {1}));
  for (int i = 0; i < 4000 && !std::filesystem::exists(folder_.file("ready")); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  terminal_.reset();
  folder_.write("go", "");
  EXPECT_EQ(describeStatus(process.finish().waitStatus), "exit 4");
}

TEST_F(ExecTerminal, HasOutputsThatTheTaskCanOpen) {
  expectShown(onTerminal("echo a >/dev/stdout", {1, 2}), calling_ + "\r\na\r\n", "exit 0");
  expectShown(onTerminal("echo b >/dev/stderr", {2}), "b\r\n", "exit 0");
}

TEST_F(ExecTerminal, ShowsOneOutputIfNothingElseIsOpen) {
  ProcessOptions options = onTerminal("echo a; echo b >&2", {2});
  const auto open = options.prepare;
  options.prepare = [=] {
    open();
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
  };
  expectShown(options, "b\r\n", "exit 0");
}

TEST_F(ExecTerminal, AlsoShowsTheTextsOfARefusal) {
  job_.set("WorkingFolder", "/no\x1b[2J");
  expectShown(onTerminal("", {2}), cannotEnter("/no\\x1b[2J", "No such file or directory") + "\r\n",
              "exit 125");
}

// The task with a fault of tests/support/faults.cpp.
ProcessOptions with(const std::string& fault, ProcessOptions options) {
  options.environment.insert(options.environment.end(),
                             {{"LD_PRELOAD", faultsPath},
                              {"RUNLET_FAULT", fault},
                              {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
  return options;
}

TEST_F(ExecTerminal, NeedsAProcessToKeepTheTaskFromIt) {
  const ProcessOptions options = onTerminal("exit 0", {1}, {"--keep-env", "RUNLET_FAULT"});
  for (const char* fault : {"no-pipes", "no-session"}) {
    const ProcessResult result = runProcess(with(fault, options));
    EXPECT_EQ(result.error,
              "runlet-job: exec: cannot detach the task from the terminal: Operation not "
              "permitted\n");
    EXPECT_EQ(terminal_->written(), "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 125");
  }
}

// If it cannot be determined whether there is a controlling terminal.
TEST_F(ExecTerminal, PreventsTheStartIfItCannotBeRuledOut) {
  const ProcessOptions options = onTerminal("echo ran", {}, {"--keep-env", "RUNLET_FAULT"});
  expectTool(runProcess(with("terminal-unknown", options)), calling_ + "\n",
             "runlet-job: task not started: it would keep its access to the terminal\n",
             "exit 125");
}

}  // namespace
}  // namespace runlet_test
