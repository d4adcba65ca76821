// Every way a child can end, and what it inherits.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>

#include "adapter_test.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

class Child : public AdapterTest {
 protected:
  // The lines of the tasks 1 to `count` of a job whose command ends in the task's number.
  std::string linesOfTasks(const std::string& command, int count) const {
    std::string lines;
    for (int number = 1; number <= count; ++number) {
      lines += calling(command + std::to_string(number), folder()) + processStarted;
    }
    return lines;
  }

  // Runs `count` tasks of a script that gets the number of the task.
  ProcessResult runScript(const std::string& script, int count) {
    folder_.write("script", "#!/bin/sh\n" + script + "\n", 0755);
    Job job;
    job.arguments = "./script %tn";
    job.tasks.assign(static_cast<std::size_t>(count), "t");
    write(job);
    return run(newTask(1, count));
  }
};

// A child that exits with `code` before exec; the adapter then inherits it.
void leaveAChildBehind(int code) {
  const pid_t pid = fork();
  if (pid == 0) _exit(code);
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
}

TEST_F(Child, EndsInEveryExitCode) {
  std::string error;
  for (int code = 1; code <= 127; ++code) error += exitCodeLine(code);
  for (int code = -128; code <= -1; ++code) error += exitCodeLine(code);
  expectResult(runScript("exit $1", 256), linesOfTasks("./script ", 256), error, "exit 0");
}

// The task ends with its own process, whatever that leaves running.
TEST_F(Child, IsNotWaitedForBeyondItsOwnProcess) {
  folder_.write(
      "script",
      "#!/bin/sh\n"
      "(while [ -e job.xml -a ! -e go ]; do sleep 0.01; done; : >done) >/dev/null 2>&1 3>&1 &\n"
      "exit 9\n",
      0755);
  expectResult(runCommand("./script x"), calling("./script x", folder()) + processStarted,
               exitCodeLine(9), "exit 0");
  EXPECT_FALSE(std::filesystem::exists(folder_.file("done")));
  folder_.write("go", "");
  for (int i = 0; i < 1000 && !std::filesystem::exists(folder_.file("done")); ++i) usleep(10000);
  EXPECT_TRUE(std::filesystem::exists(folder_.file("done")));
}

// A starter may leave children of its own to the adapter.
TEST_F(Child, IsNotMistakenForAnother) {
  folder_.write("script", "#!/bin/sh\nsleep 0.1\nexit 7\n", 0755);
  Job job;
  job.arguments = "./script x";
  write(job);
  ProcessOptions options = adapter(newTask());
  options.prepare = [] { leaveAChildBehind(5); };
  expectResult(runProcess(options), calling("./script x", folder()) + processStarted,
               exitCodeLine(7), "exit 0");
}

// A wait may also report a child that has only stopped.
TEST_F(Child, IsWaitedForUntilItHasEnded) {
  Job job;
  job.arguments = "/bin/sh -c \"exit 6\"";
  write(job);
  expectResult(runProcess(withFault("stopped-first", newTask())),
               calling(job.arguments, folder()) + processStarted, exitCodeLine(6), "exit 0");
}

// Its output would not go where the job wants it.
TEST_F(Child, RunsNoProgramIfStandardErrorCannotBeJoined) {
  Job job;
  job.arguments = "/bin/mkdir made";
  write(job);
  expectNotExecuted(runProcess(withFault("dup2-refused", newTask())), job.arguments,
                    std::strerror(EBUSY));
  EXPECT_FALSE(std::filesystem::exists(folder_.file("made")));
  job.set("redirectStderr", "no");
  write(job);
  expectResult(runProcess(withFault("dup2-refused", newTask())),
               calling(job.arguments, folder()) + processStarted, "", "exit 0");
}

TEST_F(Child, StaysInTheProcessGroupAndSession) {
  const ProcessResult result = runCommand(probe());
  expectResult(result, calling(probe(), folder()) + processStarted, "", "exit 0");
  Report lines = report();
  EXPECT_EQ(lines["group"], Strings{std::to_string(result.pid)});
  EXPECT_EQ(lines["session"], Strings{std::to_string(result.pid)});
}

TEST_F(Child, GetsAnyNumberOfWords) {
  Job job;
  job.arguments = probe();
  Strings words = {probePath, folder_.file("report")};
  for (int i = 0; i < 1800; ++i) {
    job.arguments += " w";
    words.emplace_back("w");
  }
  write(job);
  expectResult(run(newTask()), calling(job.arguments, folder()) + processStarted, "", "exit 0");
  EXPECT_EQ(report()["argument"], words);
}

// Quotes also group the program name, and each closing quote ends a word.
TEST_F(Child, GetsItsWordsFromTheWholeLine) {
  const std::string program = folder_.file("a probe");
  std::filesystem::copy_file(probePath, program);
  const std::string reportPath = folder_.file("report");
  const struct {
    std::string line;
    Strings words;
  } rows[] = {
      {"\"" + program + "\" " + reportPath, {program, reportPath}},
      {"\"" + program + "\"" + reportPath, {program, reportPath}},
      {"   \"" + program + "\"\"" + reportPath + "\"\"\"x", {program, reportPath, "", "x"}},
      {"\"" + program + "\" " + reportPath + " \"\"\"\" \" \"", {program, reportPath, "", "", " "}},
      {"\"" + program + "\" " + reportPath + " x\"y z\" \"q", {program, reportPath, "x\"y", "z\""}},
      {"\"" + program + "\" " + reportPath + " -a=\"b c\"", {program, reportPath, "-a=\"b", "c\""}},
      {"\"" + program + "\" " + reportPath + " \"a\tb\" \\\"c",
       {program, reportPath, R"(a\x09b)", R"(\x5c"c)"}},
      {"\"" + program + "\" " + reportPath + " \ta\t b\t\t \t",
       {program, reportPath, R"(\x09a\x09)", R"(b\x09\x09)", R"(\x09)"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    expectResult(runCommand(row.line), calling(row.line, folder()) + processStarted, "", "exit 0");
    EXPECT_EQ(report()["argument"], row.words);
  }
}

class NoFork : public AdapterTest {
 protected:
  // The adapter as a user who may start no further process. `prepare` is called as that user before
  // the limit applies.
  ProcessOptions limited(const Strings& arguments, const std::function<void()>& prepare) const {
    ProcessOptions options = unprivileged(arguments);
    // A leak check at exit would need another process.
    options.environment.emplace_back("ASAN_OPTIONS", "detect_leaks=0:verify_asan_link_order=0");
    const std::function<void()> becomeOther = options.prepare;
    options.prepare = [becomeOther, prepare] {
      if (becomeOther) becomeOther();
      prepare();
      const rlimit none{0, 0};
      setrlimit(RLIMIT_NPROC, &none);
    };
    return options;
  }

  Job job(const std::string& command) const {
    Job made;
    made.arguments = command;
    if (geteuid() == 0) {
      made.set("uid", std::to_string(otherId)).set("gid", std::to_string(otherId));
    }
    return made;
  }
};

// The line has the command with the folder before it; it does not matter that chmod could not run
// either.
TEST_F(NoFork, NamesTheWholeCommandLine) {
  write(job("render -x \"a b\""));
  Strings arguments = newTask(1, 1);
  arguments.insert(arguments.end(), {"-a", "/nowhere/tool"});
  expectResult(runProcess(limited(arguments, [] {})),
               calling("/nowhere/render -x \"a b\"", folder()),
               cannotFork("/nowhere/render -x \"a b\""), "exit 255");
}

// After a failed fork the adapter waits for any child, and reports how that one ended.
TEST_F(NoFork, WaitsForAnyChild) {
  write(job("/bin/true x"));
  expectResult(runProcess(limited(newTask(), [] { leaveAChildBehind(5); })),
               calling("/bin/true x", folder()), cannotFork("/bin/true x", exitCodeLine(5)),
               "exit 255");
}

}  // namespace
}  // namespace runlet_test
