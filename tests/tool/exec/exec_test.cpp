// The state, arguments and end of a task that runlet-job exec becomes.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "exec_run.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

void expectBecame(const ProcessResult& result, const std::string& command,
                  const std::string& folder) {
  expectTool(result, calling(command, folder), "", "exit 0");
}

using ExecProcess = ExecTest;

TEST_F(ExecProcess, IsTheTaskItself) {
  const ProcessResult result = becomeCommand(probe());
  expectBecame(result, probe(), folder());
  Report lines = report();
  const Strings own = {std::to_string(result.pid)};
  EXPECT_EQ(lines["pid"], own);
  EXPECT_EQ(lines["group"], own);
  EXPECT_EQ(lines["session"], own);
  EXPECT_EQ(lines["parent"], Strings{std::to_string(getpid())});
}

// Here the starter leads the group, so the task could leave it.
TEST_F(ExecProcess, StaysInTheProcessGroupAndSession) {
  Job job;
  job.arguments = probe();
  write(job);
  ProcessOptions options = exec(task());
  Strings words = {"/bin/sh", "-c", "\"$@\"; exit $?", "sh"};
  words.insert(words.end(), options.arguments.begin(), options.arguments.end());
  options.arguments = words;
  const ProcessResult result = runProcess(options);
  expectBecame(result, probe(), folder());
  const Strings starter = {std::to_string(result.pid)};
  Report lines = report();
  EXPECT_NE(lines["pid"], starter);
  EXPECT_EQ(lines["parent"], starter);
  EXPECT_EQ(lines["group"], starter);
  EXPECT_EQ(lines["session"], starter);
}

TEST_F(ExecProcess, IsTheTaskOfItsNumberAlone) {
  Job job;
  job.arguments = "/bin/mkdir %jp1-%3tn-%tp2";
  job.tasks = {"a\tnorth", "b\teast", "c\tsouth"};
  job.params = {{"name", "tile"}};
  write(job);
  expectBecame(become(2), "/bin/mkdir tile-002-east", folder());
  EXPECT_EQ(rmdir(folder_.file("tile-002-east").c_str()), 0);
  expectBecame(become(3), "/bin/mkdir tile-003-south", folder());
  EXPECT_EQ(rmdir(folder_.file("tile-003-south").c_str()), 0);
  EXPECT_EQ(unlink(jobFile_.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_empty(folder()));
}

TEST_F(ExecProcess, EndsWithTheExitCodeOfTheProgram) {
  for (const int code : {0, 1, 3, 125, 126, 127, 128, 200, 255}) {
    const std::string command = "/bin/sh -c \"exit " + std::to_string(code) + "\"";
    expectTool(becomeCommand(command), calling(command, folder()), "",
               "exit " + std::to_string(code));
  }
}

TEST_F(ExecProcess, DiesOfTheSignalOfTheProgram) {
  for (const int signal : {SIGHUP, SIGABRT, SIGKILL, SIGSEGV, SIGPIPE, SIGTERM}) {
    const std::string number = std::to_string(signal);
    Job job;
    job.arguments = "/bin/sh -c \"kill -" + number + " $$\"";
    write(job);
    ProcessOptions options = exec(task());
    options.prepare = [] {
      const rlimit none{0, 0};
      setrlimit(RLIMIT_CORE, &none);
    };
    expectTool(runProcess(options), calling(job.arguments, folder()), "", "signal " + number);
  }
}

// The starter can end the task with a signal, and no other process survives.
TEST_F(ExecProcess, GetsTheSignalsOfTheStarter) {
  Job job;
  job.arguments = "/bin/sh -c \"trap 'exit 44' TERM; echo ready; while :; do sleep 0.01; done\"";
  write(job);
  Process process(exec(task()));
  ASSERT_TRUE(process.readUntil("ready\n"));
  kill(process.pid(), SIGTERM);
  expectTool(process.finish(), calling(job.arguments, folder()) + "ready\n", "", "exit 44");
}

TEST_F(ExecProcess, GetsItsWordsFromTheWholeLine) {
  const std::string program = folder_.file("my probe");
  std::filesystem::copy_file(probePath, program);
  const std::string file = folder_.file("report");
  const std::string start = "\"" + program + "\" " + file;
  const struct {
    std::string line;
    Strings words;
  } rows[] = {
      {start, {}},
      {"\"" + program + "\"" + file, {}},
      {"  " + start + "   one  two ", {"one", "two"}},
      {start + " \"one two\"three", {"one two", "three"}},
      {start + " one\"two three\"", {"one\"two", "three\""}},
      {start + " \"\"\"\" \" \"", {"", "", " "}},
      {start + " one \"two three", {"one"}},
      {start + " one \"", {"one"}},
      {start + " on\te\t \\\"two \"\tthree\"", {R"(on\x09e\x09)", R"(\x5c"two)", R"(\x09three)"}},
      {start + " 'one two' $HOME * ; >x \xc3\xa9\xff",
       {"'one", "two'", "$HOME", "*", ";", ">x", R"(\xc3\xa9\xff)"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    expectBecame(becomeCommand(row.line), row.line, folder());
    Strings words = {program, file};
    words.insert(words.end(), row.words.begin(), row.words.end());
    EXPECT_EQ(report()["argument"], words);
  }
}

TEST_F(ExecProcess, GetsAsManyWordsAsALineHolds) {
  Job job;
  job.arguments = probe();
  Strings words = {probePath, folder_.file("report")};
  while (job.arguments.size() < 3998) {
    job.arguments += " v";
    words.emplace_back("v");
  }
  write(job);
  expectBecame(become(), job.arguments, folder());
  EXPECT_EQ(report()["argument"], words);
}

TEST_F(ExecProcess, RunsInTheRunFolder) {
  const std::string work = folder_.makeFolder("some work");
  const std::string in = folder_.makeFolder("in");
  const std::string deep = folder_.makeFolder("in/deep");
  struct Row {
    std::string workingFolder;  // empty = none
    std::string start;          // in which exec is started
    std::string job;
    std::string calling;
    std::string folder;
  };
  const Row rows[] = {
      {"", folder(), "in/job.xml", in, in},
      {"", in, "job.xml", in, in},
      {"", in, "./job.xml", in + "/.", in},
      {"", deep, "../job.xml", deep + "/..", in},
      {"", folder(), "in//job.xml", in + "/", in},
      {"", work, in + "/deep/../job.xml", in + "/deep/..", in},
      {work, in, "job.xml", work, work},
      {work + "/", folder(), "in/job.xml", work + "/", work},
      // A relative one is relative to the current folder of exec, not to the job file.
      {"in", folder(), "in/job.xml", "in", in},
      {"deep", in, in + "/job.xml", "deep", deep},
      {".", deep, "../job.xml", ".", deep},
      {"..", deep, in + "/job.xml", "..", in},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.start + ": " + row.job + ", " + row.workingFolder);
    Job job;
    job.arguments = probe();
    if (!row.workingFolder.empty()) job.set("WorkingFolder", row.workingFolder);
    folder_.write("in/job.xml", job.text());
    ProcessOptions options = exec({row.job, "--task", "1"});
    options.folder = row.start;
    expectBecame(runProcess(options), probe(), row.calling);
    EXPECT_EQ(report()["folder"], Strings{row.folder});
  }
}

TEST_F(ExecProcess, TakesAJobFileOfAnyName) {
  Job job;
  job.arguments = "/bin/true";
  for (const char* name : {"check", "exec", "a b'c\"d", "%s%n%d", "-a", "--task", "[x]", "{y}",
                           "%%", "caf\xc3\xa9", "a\nb", "\xff\x01\x1b[1m", "=", "*"}) {
    folder_.write(name, job.text());
    ProcessOptions options = exec({"--task", "1", "--", name});
    options.folder = folder();
    expectBecame(runProcess(options), "/bin/true", folder());
    expectBecame(runProcess(exec({folder_.file(name), "--task", "1"})), "/bin/true", folder());
  }
}

// No text of a job is used as a format.
TEST_F(ExecProcess, ShowsPercentSignsUnchanged) {
  Job job;
  job.arguments = "/bin/true %%s%%n%%d";
  job.set("WorkingFolder", folder_.makeFolder("%n%s"));
  write(job);
  expectBecame(become(), "/bin/true %s%n%d", folder_.file("%n%s"));
}

TEST_F(ExecProcess, HasTheMaskAsAPlainNumber) {
  const struct {
    const char* mask;  // null = no such element
    const char* octal;
  } rows[] = {{"2", "0002"},  {"022", "0026"}, {nullptr, "0000"}, {"63", "0077"},
              {"-1", "0777"}, {"512", "0000"}, {"x", "0000"}};
  for (const auto& row : rows) {
    Job job;
    job.arguments = "/bin/grep Umask /proc/self/status";
    job.remove("umask");
    if (row.mask != nullptr) job.set("umask", row.mask);
    write(job);
    expectTool(become(),
               calling(job.arguments, folder()) + "Umask:\t" + std::string(row.octal) + "\n", "",
               "exit 0");
  }
}

// The output of the program /bin/`name` with these arguments is the same for a task as without
// exec, except for the first line, and the shell for chmod leaves no traces.
class ExecInheritance : public ExecTest {
 protected:
  void expectSame(const std::string& name, const Strings& arguments,
                  const std::function<void()>& prepare) {
    const std::string program = folder_.file(name);
    std::filesystem::copy_file("/bin/" + name, program);
    std::string line = name;
    for (const std::string& argument : arguments) line += " " + argument;
    ProcessOptions direct = exec({});
    direct.environment.emplace_back("SHOT", "a=b\nc \xff");
    direct.environment.emplace_back("EMPTY", "");
    direct.prepare = prepare;
    ProcessOptions became = direct;
    direct.arguments = {program};
    direct.arguments.insert(direct.arguments.end(), arguments.begin(), arguments.end());
    const std::string output = runProcess(direct).output;
    EXPECT_NE(output, "");
    for (const bool isApplication : {false, true}) {
      Job job;
      job.arguments = isApplication ? line : folder() + "/" + line;
      write(job);
      const Strings more = isApplication ? Strings{"-a", folder_.file("x")} : Strings{};
      became.arguments = exec(task(1, more)).arguments;
      const std::string calling_ = calling(folder() + "/" + line, folder());
      expectTool(runProcess(became), calling_ + output, "", "exit 0");
    }
  }
};

TEST_F(ExecInheritance, OfTheEnvironmentIsComplete) {
  expectSame("cat", {"/proc/self/environ"}, nullptr);
}

TEST_F(ExecInheritance, OfIgnoredAndBlockedSignalsIsComplete) {
  expectSame("grep", {"-e", "SigBlk", "-e", "SigIgn", "-e", "SigCgt", "/proc/self/status"}, [] {
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGCHLD, SIGRTMAX}) {
      std::signal(signal, SIG_IGN);
    }
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGCHLD, SIGUSR2, SIGTERM}) sigaddset(&blocked, signal);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
  });
}

TEST_F(ExecInheritance, OfLimitsIsComplete) {
  expectSame("cat", {"/proc/self/limits", "/proc/self/cgroup", "/proc/self/oom_score_adj"}, [] {
    const rlimit few{17, 23};
    setrlimit(RLIMIT_NOFILE, &few);
  });
}

class ExecStreams : public ExecTest {
 protected:
  // Becomes the task with both outputs redirected to files, and the descriptors of `closed` closed.
  ProcessResult becomeToFiles(const std::vector<int>& closed = {}) const {
    ProcessOptions options = exec(task());
    options.prepare = [&] {
      openAs(STDOUT_FILENO, output_, O_WRONLY | O_CREAT | O_TRUNC);
      openAs(STDERR_FILENO, error_, O_WRONLY | O_CREAT | O_TRUNC);
      for (const int descriptor : closed) close(descriptor);
    };
    ProcessResult result = runProcess(options);
    result.output = readFile(output_);
    result.error = readFile(error_);
    return result;
  }

  void writeRedirected(const std::string& command, bool redirect) {
    Job job;
    job.arguments = command;
    write(job.set("redirectStderr", redirect ? "yes" : "no"));
  }

  const std::string output_ = folder_.file("output");
  const std::string error_ = folder_.file("error");
};

// The old standard error is kept under the lowest free descriptor, even if that is one of the
// three, and no other is open.
TEST_F(ExecStreams, OfTheTaskAreThoseOfAChildOfTheAdapter) {
  const struct {
    std::vector<int> closed;
    Strings redirected;
    Strings apart;
  } rows[] = {
      {{},
       {"0 /dev/null", "1 " + output_, "2 " + output_, "3 " + error_},
       {"0 /dev/null", "1 " + output_, "2 " + error_}},
      {{0}, {"0 " + error_, "1 " + output_, "2 " + output_}, {"1 " + output_, "2 " + error_}},
      {{1}, {"0 /dev/null", "1 " + error_, "2 " + error_}, {"0 /dev/null", "2 " + error_}},
      {{2}, {"0 /dev/null", "1 " + output_, "2 " + output_}, {"0 /dev/null", "1 " + output_}},
      {{0, 1}, {"0 " + error_, "2 " + error_}, {"2 " + error_}},
      {{0, 2}, {"1 " + output_, "2 " + output_}, {"1 " + output_}},
      {{1, 2}, {"0 /dev/null"}, {"0 /dev/null"}},
      {{0, 1, 2}, {}, {}},
  };
  for (const auto& row : rows) {
    for (const bool redirect : {true, false}) {
      SCOPED_TRACE(testing::PrintToString(row.closed) + (redirect ? " redirected" : ""));
      writeRedirected(probe(), redirect);
      const std::string text = readFile(jobFile_);
      const bool isOpen = std::count(row.closed.begin(), row.closed.end(), 1) == 0;
      expectTool(becomeToFiles(row.closed), isOpen ? calling(probe(), folder()) : "", "", "exit 0");
      EXPECT_EQ(report()["descriptor"], redirect ? row.redirected : row.apart);
      EXPECT_EQ(readFile(jobFile_), text);
    }
  }
}

TEST_F(ExecStreams, OfTheStarterStayOpen) {
  const std::string file = folder_.write("lock", "");
  writeRedirected(probe(), true);
  ProcessOptions options = exec(task());
  options.prepare = [&] {
    openAs(STDOUT_FILENO, output_, O_WRONLY | O_CREAT);
    openAs(STDERR_FILENO, error_, O_WRONLY | O_CREAT);
    for (const int descriptor : {3, 5}) openAs(descriptor, file, O_RDONLY);
  };
  EXPECT_EQ(describeStatus(runProcess(options).waitStatus), "exit 0");
  EXPECT_EQ(report()["descriptor"], (Strings{"0 /dev/null", "1 " + output_, "2 " + output_,
                                             "3 " + file, "4 " + error_, "5 " + file}));
}

TEST_F(ExecStreams, JoinStandardErrorToStandardOutputIfTheJobSaysSo) {
  const std::string command = "/bin/sh -c \"echo out; echo err >&2; echo end\"";
  const std::string line = calling(command, folder());
  writeRedirected(command, true);
  expectTool(become(), line + "out\nerr\nend\n", "", "exit 0");
  writeRedirected(command, false);
  expectTool(become(), line + "out\nend\n", "err\n", "exit 0");
}

TEST_F(ExecStreams, KeepTheOldStandardErrorWithinReach) {
  writeRedirected("/bin/sh -c \"echo err >&2; echo old >&3\"", true);
  expectTool(become(), calling("/bin/sh -c \"echo err >&2; echo old >&3\"", folder()) + "err\n",
             "old\n", "exit 0");
}

TEST_F(ExecStreams, GiveTheTaskTheInput) {
  writeRedirected("/bin/cat", true);
  const std::string input = folder_.write("input", "first\nlast");
  ProcessOptions options = exec(task());
  options.prepare = [&] { openAs(STDIN_FILENO, input, O_RDONLY); };
  expectTool(runProcess(options), calling("/bin/cat", folder()) + "first\nlast", "", "exit 0");
}

// The line comes once, before all output of the program, whatever the outputs are and however long
// it is.
TEST_F(ExecStreams, BeginWithTheCallingLine) {
  const std::string longWords(3900, 'w');
  for (const bool redirect : {true, false}) {
    for (const std::string& words : {std::string("x"), longWords}) {
      const std::string command = "/bin/echo " + words;
      writeRedirected(command, redirect);
      const std::string output = calling(command, folder()) + words + "\n";
      expectTool(become(), output, "", "exit 0");
      expectTool(becomeToFiles(), output, "", "exit 0");

      const std::string missing = "./missing " + words;
      writeRedirected(missing, redirect);
      const std::string error = cannotExecute(missing, "No such file or directory");
      expectTool(become(), calling(missing, folder()), error, "exit 127");
      expectTool(becomeToFiles(), calling(missing, folder()), error, "exit 127");
    }
  }
}

// A log holds both outputs: the line comes first there, too.
TEST_F(ExecStreams, BeginWithTheCallingLineInOneFile) {
  Job job;
  ProcessOptions options = exec(task());
  options.prepare = [&] {
    openAs(STDOUT_FILENO, output_, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND);
    dup2(STDOUT_FILENO, STDERR_FILENO);
  };
  const struct {
    const char* command;
    std::string rest;
  } rows[] = {
      {"/bin/sh -c \"echo err >&2; echo out\"", "err\nout\n"},
      {"./missing x", cannotExecute("./missing x", "No such file or directory")},
  };
  for (const auto& row : rows) {
    job.arguments = row.command;
    write(job);
    runProcess(options);
    EXPECT_EQ(readFile(output_), calling(row.command, folder()) + row.rest);
  }
  // Also before the message about a program that cannot be made executable.
  job.arguments = "missing x";
  write(job);
  options.arguments = exec(task(1, {"-a", folder_.file("x")})).arguments;
  runProcess(options);
  const std::string path = folder_.file("missing");
  EXPECT_EQ(readFile(output_), calling(path + " x", folder()) + chmodError(path) +
                                   cannotExecute(path + " x", "No such file or directory"));
}

// The line is written before the program runs, not only when its buffer is full.
TEST_F(ExecStreams, HoldTheCallingLineWhileTheTaskRuns) {
  Job job;
  job.arguments = "/bin/sh -c \"while [ -e job.xml ] && [ ! -e go ]; do sleep 0.01; done\"";
  write(job);
  Process process(exec(task()));
  EXPECT_TRUE(process.readUntil(calling(job.arguments, folder())));
  folder_.write("go", "");
  expectTool(process.finish(), calling(job.arguments, folder()), "", "exit 0");
}

TEST_F(ExecStreams, ThatCannotBeWrittenDoNotKeepTheTaskFromRunning) {
  const struct {
    const char* name;
    std::function<void()> prepare;
  } rows[] = {
      {"full", [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); }},
      {"closed", [] { close(STDOUT_FILENO); }},
      {"none", [] { close_range(0, 2, 0); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Job job;
    job.arguments = "/bin/mkdir made";
    write(job);
    ProcessOptions options = exec(task());
    options.prepare = row.prepare;
    expectTool(runProcess(options), "", "", "exit 0");
    EXPECT_EQ(rmdir(folder_.file("made").c_str()), 0);

    job.arguments = "./missing x";
    write(job);
    const ProcessResult result = runProcess(options);
    const std::string error = cannotExecute("./missing x", "No such file or directory");
    expectTool(result, "", row.name == std::string("none") ? "" : error, "exit 127");
  }
}

TEST_F(ExecStreams, ThatNobodyReadsEndItAsTheyWouldTheTask) {
  Job job;
  job.arguments = "/bin/mkdir made";
  write(job);
  for (const bool isIgnored : {false, true}) {
    ProcessOptions options = exec(task());
    options.prepare = [isIgnored] {
      if (isIgnored) std::signal(SIGPIPE, SIG_IGN);
      int ends[2];
      if (pipe(ends) != 0) _exit(97);
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
    };
    expectTool(runProcess(options), "", "",
               isIgnored ? "exit 0" : "signal " + std::to_string(SIGPIPE));
    EXPECT_EQ(rmdir(folder_.file("made").c_str()) == 0, isIgnored);
  }
}

class ExecApplication : public ExecTest {
 protected:
  ExecApplication() {
    folder_.write("bin/render", "#!/bin/sh\necho rendering $*\n", 0644);
  }

  ProcessResult becomeWith(const std::string& arguments, const std::string& application) {
    Job job;
    job.arguments = arguments;
    write(job);
    return become(1, {"-a", application});
  }

  const std::string bin_ = folder_.makeFolder("bin") + "/";
};

TEST_F(ExecApplication, HasItsProgramMadeExecutableAndRun) {
  for (const std::string& application : {bin_ + "tool", bin_, bin_ + "render"}) {
    chmod((bin_ + "render").c_str(), 0604);
    expectTool(becomeWith("render -f  %3tn", application),
               calling(bin_ + "render -f  001", folder()) + "rendering -f 001\n", "", "exit 0");
    EXPECT_EQ(modeOf(bin_ + "render"), 0755);
  }
}

// Without a folder the program is made executable in the run folder, but searched along PATH.
TEST_F(ExecApplication, MayHaveNoFolder) {
  folder_.write("echo", "", 0600);
  expectTool(becomeWith("echo x", "tool"), calling("echo x", folder()) + "x\n", "", "exit 0");
  EXPECT_EQ(modeOf(folder_.file("echo")), 0755);
  folder_.makeFolder("rel");
  folder_.write("rel/render", "#!/bin/sh\nexit 9\n", 0600);
  expectTool(becomeWith("render x", "rel/tool"), calling("rel/render x", folder()), "", "exit 9");
}

TEST_F(ExecApplication, ThatIsEmptyIsNone) {
  expectTool(becomeWith("echo", ""), calling("echo", folder()) + "\n", "", "exit 0");
}

TEST_F(ExecApplication, WithoutItsProgramIsReportedByChmodToo) {
  const std::string path = bin_ + "missing";
  expectTool(becomeWith("missing x", bin_ + "tool"), calling(path + " x", folder()),
             chmodError(path) + cannotExecute(path + " x", "No such file or directory"),
             "exit 127");
}

// With a leading space the program is the folder itself.
TEST_F(ExecApplication, MayBeAFolder) {
  chmod(bin_.c_str(), 0700);
  expectTool(becomeWith(" render x", bin_), calling(bin_ + " render x", folder()),
             cannotExecute(bin_ + " render x", "Permission denied"), "exit 126");
  EXPECT_EQ(modeOf(bin_), 0755);
}

// chmod is run by a shell, whose output comes after the line.
TEST_F(ExecApplication, IsNotQuotedForTheShell) {
  folder_.write("bin/render;echo", "#!/bin/sh\nexit 6\n", 0755);
  expectTool(becomeWith("render;echo x", bin_), calling(bin_ + "render;echo x", folder()) + "\n",
             "", "exit 6");
  EXPECT_EQ(modeOf(bin_ + "render"), 0755);
}

TEST_F(ExecApplication, NeedsASpaceInTheLine) {
  for (const char* line : {"render", "%tp1"}) {
    expectTool(becomeWith(line, bin_), "",
               terminateText("std::out_of_range",
                             "basic_string::substr: __pos (which is 18446744073709551615) > "
                             "this->size() (which is " +
                                 std::string(line[0] == '%' ? "4" : "6") + ")"),
               "exit 125");
    EXPECT_EQ(modeOf(bin_ + "render"), 0644);
  }
}

}  // namespace
}  // namespace runlet_test
