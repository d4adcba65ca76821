#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "adapter_test.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

class Launch : public AdapterTest {};

TEST_F(Launch, RunsInTheFolderOfTheJobFile) {
  expectResult(runCommand("/bin/pwd"),
               calling("/bin/pwd", folder()) + processStarted + folder() + "\n", "", "exit 0");
}

TEST_F(Launch, RunsInTheWorkingFolder) {
  const std::string work = folder_.makeFolder("a  work 'folder'");
  Job job;
  job.arguments = "/bin/pwd";
  job.set("WorkingFolder", "x");
  std::string text = job.text();
  // CDATA, otherwise the two spaces would become one
  text.replace(text.find(">x<") + 1, 1, "<![CDATA[" + work + "]]>");
  folder_.write("job.xml", text);
  expectResult(run(newTask()), calling("/bin/pwd", work) + processStarted + work + "\n", "",
               "exit 0");
}

TEST_F(Launch, CannotEnterTheNameOfAJobFileWithoutAFolder) {
  Job job;
  job.arguments = "/bin/pwd";
  write(job);
  ProcessOptions options = adapter({"-o", "NewTask", "-j", "job.xml", "-s", "1"});
  options.folder = folder();
  expectResult(runProcess(options), "", cannotEnter("job.xml", "Not a directory"), "exit 255");
}

TEST_F(Launch, HasNoFolderForAJobFileInTheRootFolder) {
  REQUIRE_ROOT();
  const std::string path = "/runlet-test-" + std::to_string(getpid()) + ".xml";
  Job job;
  job.arguments = "/bin/pwd";
  write(job);
  ASSERT_EQ(symlink(jobFile_.c_str(), path.c_str()), 0);
  const ProcessResult result = run({"-o", "NewTask", "-j", path, "-s", "1"});
  unlink(path.c_str());
  expectResult(result, "", cannotEnter("", "No such file or directory"), "exit 255");
}

TEST_F(Launch, ReportsWhyAFolderCannotBeEntered) {
  const std::string file = folder_.write("file", "");
  const std::string closed = folder_.makeFolder("closed", 0600);  // may be listed, not entered
  const struct {
    std::string path;
    const char* reason;
  } rows[] = {
      {folder_.file("missing"), "No such file or directory"},
      {file, "Not a directory"},
      {closed, "Permission denied"},
  };
  for (const auto& row : rows) {
    Job job;
    job.arguments = "/bin/pwd";
    job.set("WorkingFolder", row.path);
    write(job);
    expectResult(runProcess(unprivileged(newTask())), "", cannotEnter(row.path, row.reason),
                 "exit 255");
  }
}

// The adapter itself changes folder, and stays there.
TEST_F(Launch, LooksForARelativeFolderInsideThatOfThePreviousTask) {
  folder_.makeFolder("work");
  Job job;
  job.arguments = "/bin/pwd";
  job.tasks.assign(3, "t");
  job.set("WorkingFolder", "work");
  write(job);
  ProcessOptions options = adapter(newTask(1, 3));
  options.folder = folder();
  expectResult(runProcess(options),
               calling("/bin/pwd", "work") + processStarted + folder_.file("work") + "\n",
               cannotEnter("work", "No such file or directory"), "exit 255");

  folder_.makeFolder("work/work");
  expectResult(runProcess(options),
               calling("/bin/pwd", "work") + processStarted + folder_.file("work") + "\n" +
                   calling("/bin/pwd", "work") + processStarted + folder_.file("work/work") + "\n",
               cannotEnter("work", "No such file or directory"), "exit 255");
}

TEST_F(Launch, GivesTheChildItsWords) {
  const struct {
    const char* words;
    Strings arguments;
  } rows[] = {
      {"a  b", {"a", "b"}},
      {R"("a b" c)", {"a b", "c"}},
      {R"("a b"c)", {"a b", "c"}},
      {R"(a"b c")", {R"(a"b)", R"(c")"}},
      {R"(a "b c)", {"a"}},
      {R"("")", {""}},
      {"a\tb", {R"(a\x09b)"}},
      {"'a b' $HOME `id` \\ ;>x", {"'a", "b'", "$HOME", "`id`", R"(\x5c)", ";>x"}},
      {"\xc3\xa9\xff", {R"(\xc3\xa9\xff)"}},
      {"", {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.words);
    const std::string command = probe() + " " + row.words;
    expectResult(runCommand(command), calling(command, folder()) + processStarted, "", "exit 0");
    Strings arguments = {probePath, folder_.file("report")};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    EXPECT_EQ(report()["argument"], arguments);
  }
}

TEST_F(Launch, FindsTheProgramAlongThePath) {
  const std::string bin = folder_.makeFolder("bin");
  folder_.write("bin/my-program", "#!/bin/sh\necho found $1\n", 0755);
  folder_.write("my-program", "#!/bin/sh\necho in the run folder\n", 0755);
  Job job;
  job.arguments = "my-program here";
  write(job);
  ProcessOptions options = adapter(newTask());
  options.environment.emplace_back("PATH", "/nowhere:" + bin);
  expectResult(runProcess(options),
               calling("my-program here", folder()) + processStarted + "found here\n", "",
               "exit 0");
}

TEST_F(Launch, PassesOnTheEnvironment) {
  Job job;
  job.arguments = "/usr/bin/printenv RUNLET_TEST_VALUE";
  write(job);
  ProcessOptions options = adapter(newTask());
  options.environment.emplace_back("RUNLET_TEST_VALUE", "a b=c");
  expectResult(
      runProcess(options),
      calling("/usr/bin/printenv RUNLET_TEST_VALUE", folder()) + processStarted + "a b=c\n", "",
      "exit 0");
}

TEST_F(Launch, ReportsTheChildsIdToTheServer) {
  const ProcessResult result = runCommand(probe());
  Report lines = report();
  EXPECT_EQ(lines["parent"], Strings{std::to_string(result.pid)});
  EXPECT_EQ(result.output, calling(probe(), folder()) + "[ServerMessage]ProcessStarted processId=" +
                               lines["pid"].at(0) + "\n");
}

TEST_F(Launch, ReportsToTheServerWhileTheChildRuns) {
  Job job;
  // The task ends with the test at the latest, when the job file is removed.
  job.arguments = "/bin/sh -c \"while [ -e job.xml -a ! -e go ]; do sleep 0.02; done; echo gone\"";
  write(job);
  Process process(adapter(newTask()));
  EXPECT_TRUE(process.readUntil("processId="));
  folder_.write("go", "");
  const ProcessResult result = process.finish();
  EXPECT_EQ(withoutPids(result.output),
            calling(job.arguments, folder()) + processStarted + "gone\n");
  EXPECT_EQ(result.error, "");
}

TEST_F(Launch, PassesOnDescriptorsAndSignalDispositions) {
  Job job;
  job.arguments = "/bin/sh -c \"readlink /proc/self/fd/7; grep SigIgn /proc/self/status\"";
  write(job);
  ProcessOptions options = adapter(newTask());
  options.prepare = [] {
    dup2(STDIN_FILENO, 7);
    std::signal(SIGUSR1, SIG_IGN);
  };
  expectResult(
      runProcess(options),
      calling(job.arguments, folder()) + processStarted + "/dev/null\nSigIgn:\t0000000000000200\n",
      "", "exit 0");
}

TEST_F(Launch, SendsStandardErrorWhereTheJobSays) {
  const std::string command = "/bin/sh -c \"echo out; echo err 1>&2\"";
  const struct {
    const char* flag;  // null = no such element
    bool joined;
  } rows[] = {{nullptr, true}, {"Yes", true}, {"1", true}, {"no", false}, {"on", false}};
  for (const auto& row : rows) {
    Job job;
    job.arguments = command;
    if (row.flag != nullptr) job.set("redirectStderr", row.flag);
    write(job);
    expectResult(
        run(newTask()),
        calling(command, folder()) + processStarted + "out\n" + (row.joined ? "err\n" : ""),
        row.joined ? "" : "err\n", "exit 0");
  }
}

TEST_F(Launch, ContinuesAfterATaskThatFails) {
  Job job;
  job.arguments = "/bin/sh -c \"exit %tn\"";
  job.tasks.assign(2, "t");
  write(job);
  expectResult(run(newTask(1, 2)),
               calling("/bin/sh -c \"exit 1\"", folder()) + processStarted +
                   calling("/bin/sh -c \"exit 2\"", folder()) + processStarted,
               "Runlet adapter: Process exit abnormally,Exit code is 1\n"
               "Runlet adapter: Process exit abnormally,Exit code is 2\n",
               "exit 0");
}

class Exec : public AdapterTest {
 protected:
  void expectNotStarted(const std::string& command, const std::string& reason) {
    for (const bool redirect : {true, false}) {
      Job job;
      job.arguments = command;
      job.set("redirectStderr", redirect ? "yes" : "no");
      write(job);
      expectNotExecuted(run(newTask()), command, reason);
    }
  }
};

TEST_F(Exec, ThatFailsIsReportedByTheChildAndTheRequestSucceeds) {
  folder_.write("not-executable", "#!/bin/sh\n", 0644);
  folder_.write("no-interpreter", "#!/missing/interpreter\n", 0755);
  expectNotStarted("/missing/program -a \"b c\"", "No such file or directory");
  expectNotStarted("runlet-no-such-program -x", "No such file or directory");
  expectNotStarted(folder_.file("not-executable") + " x", "Permission denied");
  expectNotStarted(folder_.file("no-interpreter"), "No such file or directory");
  expectNotStarted(folder(), "Permission denied");
  expectNotStarted(folder_.file("not-executable") + "/x", "Not a directory");
  expectNotStarted(R"("" x)", "No such file or directory");
}

TEST_F(Exec, OfALineWithoutAWordFailsAsForAMissingFile) {
  expectNotStarted(" ", "No such file or directory");
  expectNotStarted("   ", "No such file or directory");
  expectNotStarted(R"("unfinished)", "No such file or directory");
}

TEST_F(Exec, OfAJobWithoutArgumentsFailsLikewise) {
  write(Job());
  const ProcessResult result = run(newTask());
  expectNotExecuted(result, "", "No such file or directory");
}

TEST_F(Exec, ThatFailsDoesNotKeepLaterTasksFromRunning) {
  folder_.write("2", "#!/bin/sh\necho ran\n", 0755);
  Job job;
  job.arguments = "./%tn";
  job.tasks.assign(2, "t");
  write(job);
  const ProcessResult result = run(newTask(1, 2));
  // The failed child's second "Calling" line comes before or after the parent's other line.
  const std::string first = calling("./1", folder());
  const std::string second = calling("./2", folder()) + processStarted + "ran\n";
  const std::string output = adapterLinesFirst(withoutPids(result.output));
  EXPECT_TRUE(output == first + first + processStarted + second ||
              output == first + processStarted + first + second)
      << output;
  EXPECT_EQ(result.error,
            "Runlet adapter: Cannot execute command:'./1':No such file or directory\n"
            "Runlet adapter: Process exit abnormally,Exit code is -127\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

class ApplicationPath : public AdapterTest {
 protected:
  // The job's command under the application path `appPath`, started in the job's folder.
  ProcessResult runWith(const std::string& appPath, const std::string& command,
                        const std::string& searchPath = "/bin") {
    Job job;
    job.arguments = command;
    write(job);
    Strings arguments = newTask();
    arguments.insert(arguments.end(), {"-a", appPath});
    ProcessOptions options = adapter(arguments);
    options.environment.emplace_back("PATH", searchPath);
    return runProcess(options);
  }

  const std::string bin_ = folder_.makeFolder("bin") + "/";
  const std::string script_ = "#!/bin/sh\necho ran $*\n";
};

TEST_F(ApplicationPath, PrependsItsFolderAndMakesTheProgramExecutable) {
  folder_.write("bin/render", script_, 0600);
  expectResult(runWith(bin_ + "tool", "render -x 1"),
               calling(bin_ + "render -x 1", folder()) + processStarted + "ran -x 1\n", "",
               "exit 0");
  EXPECT_EQ(modeOf(bin_ + "render"), 0755);
  EXPECT_EQ(modeOf(bin_ + "tool"), -1);
}

TEST_F(ApplicationPath, MayBeOnlyAFolder) {
  folder_.write("bin/render", script_, 0600);
  expectResult(runWith(bin_, "render "),
               calling(bin_ + "render ", folder()) + processStarted + "ran\n", "", "exit 0");
}

TEST_F(ApplicationPath, WithoutAFolderMakesTheProgramInTheRunFolderExecutable) {
  folder_.write("render", script_, 0600);
  expectResult(runWith("tool", "render -x", folder()),
               calling("render -x", folder()) + processStarted + "ran -x\n", "", "exit 0");
  EXPECT_EQ(modeOf(folder_.file("render")), 0755);
}

TEST_F(ApplicationPath, RunsItsFolderIfTheLineBeginsWithASpace) {
  const std::string tools = folder_.makeFolder("tools", 0700) + "/";
  const ProcessResult result = runWith(tools + "tool", " render -x");
  EXPECT_EQ(modeOf(tools), 0755);
  EXPECT_EQ(result.error, "Runlet adapter: Cannot execute command:'" + tools +
                              " render -x':Permission denied\n"
                              "Runlet adapter: Process exit abnormally,Exit code is -127\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

TEST_F(ApplicationPath, WithoutFolderAndWordRunsNoChmod) {
  // Without folder and first word there is no path to make executable.
  expectResult(runWith("tool", " /bin/echo x"),
               calling(" /bin/echo x", folder()) + processStarted + "x\n", "", "exit 0");
}

TEST_F(ApplicationPath, NotGivenRunsNoChmod) {
  const std::string program = folder_.write("render", script_, 0600);
  runCommand(program + " -x");
  EXPECT_EQ(modeOf(program), 0600);
}

TEST_F(ApplicationPath, EndsTheProcessIfTheLineHasNoSpace) {
  folder_.write("bin/render", script_, 0600);
  expectResult(runWith(bin_ + "tool", "render"), "",
               terminateText("std::out_of_range",
                             "basic_string::substr: __pos (which is 18446744073709551615) > "
                             "this->size() (which is 6)"),
               "signal 6");
  EXPECT_EQ(modeOf(bin_ + "render"), 0600);
}

TEST_F(ApplicationPath, ContinuesWhenTheChmodFails) {
  const std::string command = bin_ + "missing -x";
  const ProcessResult result = runWith(bin_, "missing -x");
  EXPECT_EQ(result.error, chmodError(bin_ + "missing") +
                              cannotExecute(command, "No such file or directory") +
                              exitCodeLine(-127));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

TEST_F(ApplicationPath, GoesThroughAShellWithoutQuotes) {
  folder_.write("bin/render", script_, 0600);
  runWith(bin_, "render;>marker -x");
  EXPECT_EQ(modeOf(bin_ + "render"), 0755);
  EXPECT_EQ(modeOf(folder_.file("marker")), 0644);
}

using Faults = AdapterTest;

// Uses the process limit of an unprivileged user, which allows only the adapter itself.
TEST_F(Faults, OfTheForkFailTheTask) {
  Job job;
  job.arguments = "/bin/echo %tn";
  job.tasks.assign(2, "t");
  if (geteuid() == 0) job.set("uid", std::to_string(otherId)).set("gid", std::to_string(otherId));
  write(job);
  ProcessOptions options = unprivileged(newTask(1, 2));
  // A leak check at exit would need another process.
  options.environment.emplace_back("ASAN_OPTIONS", "detect_leaks=0");
  const std::function<void()> becomeOther = options.prepare;
  options.prepare = [becomeOther] {
    if (becomeOther) becomeOther();
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NPROC, &none);
  };
  expectResult(runProcess(options), calling("/bin/echo 1", folder()),
               "Runlet adapter: Cannot start a new child process\n"
               "Wait Error:No child processes\n"
               "Cannot start /bin/echo 1\n"
               "Make sure the batch file or executable name has its full name and path (or "
               "configure server accordingly)\n",
               "exit 255");
}

TEST_F(Faults, InterruptedWaitIsNotRetried) {
  Job job;
  job.arguments = "/bin/sh -c \"exit 3\"";
  write(job);
  expectResult(runProcess(withFault("interrupted-wait", newTask())),
               calling(job.arguments, folder()) + processStarted,
               "Wait Error:Interrupted system call\n", "exit 0");
}

TEST_F(Faults, OnATerminalTheLinesAreWrittenAtOnce) {
  // Standard output and standard error on one terminal: line buffering shows the order, and leaves
  // nothing for a failing child to write again.
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
  const std::string slave = ptsname(terminal);
  const std::string bin = folder_.makeFolder("bin") + "/";
  Job job;
  job.arguments = "missing -x";
  write(job);
  Strings arguments = newTask();
  arguments.insert(arguments.end(), {"-a", bin});
  ProcessOptions options = adapter(arguments);
  options.prepare = [&] {
    const int descriptor = open(slave.c_str(), O_RDWR | O_NOCTTY);
    dup2(descriptor, STDOUT_FILENO);
    dup2(descriptor, STDERR_FILENO);
    close(descriptor);
  };
  const ProcessResult result = runProcess(options);
  std::string text;
  char buffer[4096];
  // Ends with an error once the other side is closed.
  for (ssize_t count = 0; (count = read(terminal, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  close(terminal);
  std::erase(text, '\r');
  const std::string command = bin + "missing -x";
  const std::string begin = calling(command, folder()) + chmodError(bin + "missing");
  const std::string child =
      "Runlet adapter: Cannot execute command:'" + command + "':No such file or directory\n";
  const std::string end = "Runlet adapter: Process exit abnormally,Exit code is -127\n";
  text = withoutPids(text);
  EXPECT_TRUE(text == begin + processStarted + child + end ||
              text == begin + child + processStarted + end)
      << text;
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

}  // namespace
}  // namespace runlet_test
