// Standard input, output and error that are closed or cannot be written, and a descriptor table
// that is nearly full.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <sstream>

#include "fault_test.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

void makeFull(int descriptor) {
  openAs(descriptor, "/dev/full", O_WRONLY);
}

void makeClosed(int descriptor) {
  close(descriptor);
}

// A pipe without a reader.
void makeBroken(int descriptor) {
  int ends[2];
  if (pipe(ends) != 0) _exit(96);
  close(ends[0]);
  dup2(ends[1], descriptor);
  close(ends[1]);
}

void makeBrokenAndIgnoreIt(int descriptor) {
  makeBroken(descriptor);
  std::signal(SIGPIPE, SIG_IGN);
}

// A file that may not grow.
void makeLimitedAndIgnoreIt(int descriptor) {
  openAs(descriptor, "limited", O_WRONLY | O_CREAT | O_TRUNC);
  const rlimit none{0, 0};
  setrlimit(RLIMIT_FSIZE, &none);
  std::signal(SIGXFSZ, SIG_IGN);
}

using Fault = void (*)(int descriptor);

// Faults that make writing fail without ending the process.
constexpr struct {
  const char* name;
  Fault make;
} unwritable[] = {
    {"full", makeFull},
    {"closed", makeClosed},
    {"broken, SIGPIPE ignored", makeBrokenAndIgnoreIt},
    {"limited, SIGXFSZ ignored", makeLimitedAndIgnoreIt},
};

class BrokenStreams : public FaultTest {
 protected:
  ProcessResult runWith(const Strings& arguments, const std::function<void()>& fault) const {
    ProcessOptions options = adapter(arguments);
    options.folder = folder();
    options.prepare = fault;
    return runProcess(options);
  }

  Job twoTasks(const std::string& command) const {
    Job job;
    job.arguments = command;
    job.tasks.assign(2, "t");
    return job;
  }

  // The adapter's lines about the two tasks of such a job.
  std::string linesOf(const std::string& first, const std::string& second) const {
    return calling(first, folder()) + processStarted + calling(second, folder()) + processStarted;
  }
};

// Failures to write to the server do not affect what is done.
TEST_F(BrokenStreams, OfTheOutputDoNotShowInTheStatus) {
  const std::string text = twoTasks("/bin/mkdir made%tn").text();
  for (const auto& fault : unwritable) {
    SCOPED_TRACE(fault.name);
    folder_.write("job.xml", text);
    const auto onOutput = [&] { fault.make(STDOUT_FILENO); };
    expectResult(runWith({"-o", "GetInfo"}, onOutput), "", "", "exit 0");
    expectResult(runWith({"-o", "Unknown"}, onOutput), "", "", "exit 255");
    expectResult(runWith(newTask(1, 2), onOutput), "", "", "exit 0");
    EXPECT_EQ(rmdir(folder_.file("made1").c_str()), 0);
    EXPECT_EQ(rmdir(folder_.file("made2").c_str()), 0);
    EXPECT_EQ(readFile(jobFile_), text);
  }
}

// More lines than fit into a buffer.
TEST_F(BrokenStreams, OfTheOutputDoNotStopALongRange) {
  Job job;
  job.arguments = "./script %tn " + std::string(1000, 'x');
  job.tasks.assign(20, "t");
  write(job);
  script("script", "echo $1 >>ran");
  std::string ran;
  for (int number = 1; number <= 20; ++number) ran += std::to_string(number) + "\n";
  for (const Fault fault : {makeFull, makeClosed, makeBrokenAndIgnoreIt}) {
    expectResult(runWith(newTask(1, 20), [&] { fault(STDOUT_FILENO); }), "", "", "exit 0");
    EXPECT_EQ(readFile(folder_.file("ran")), ran);
    unlink(folder_.file("ran").c_str());
  }
}

// If the signal is not ignored, it ends the adapter at its first line: the task has been started by
// then and continues.
TEST_F(BrokenStreams, OfTheOutputEndTheAdapterByTheSignal) {
  write(twoTasks("/bin/mkdir made%tn"));
  const auto broken = [] { makeBroken(STDOUT_FILENO); };
  expectResult(runWith(newTask(1, 2), broken), "", "", "signal 13");
  EXPECT_EQ(endOfOrphan(-1), "exit 0");
  EXPECT_EQ(files(), (Strings{"job.xml", "made1"}));
  expectResult(runWith({"-o", "GetInfo"}, broken), "", "", "signal 13");
  // Without output there is no signal.
  expectResult(runWith({"-o", "ShutDown"}, broken), "", "", "exit 0");
  const auto limited = [] {
    makeLimitedAndIgnoreIt(STDOUT_FILENO);
    std::signal(SIGXFSZ, SIG_DFL);
  };
  expectResult(runWith({"-o", "GetInfo"}, limited), "", "", "signal 25");
}

TEST_F(BrokenStreams, OfTheDiagnosticsDoNotShowInTheStatus) {
  const std::string text = twoTasks("/bin/sh -c \"exit %tn\"").text();
  const std::string lines = linesOf("/bin/sh -c \"exit 1\"", "/bin/sh -c \"exit 2\"");
  for (const auto& fault : unwritable) {
    SCOPED_TRACE(fault.name);
    folder_.write("job.xml", text);
    const auto onError = [&] { fault.make(STDERR_FILENO); };
    expectResult(runWith(newTask(1, 2), onError), lines, "", "exit 0");
    expectResult(runWith({"-o", "PingTask", "-j", jobFile_, "-e", "1"}, onError), "", "",
                 "exit 255");
    expectResult(runWith({"-o", "NewTask", "-j", "/missing.xml", "-s", "1"}, onError), "", "",
                 "exit 255");
    expectResult(runWith({}, onError), "", "", "exit 255");
    EXPECT_EQ(readFile(jobFile_), text);
  }
}

TEST_F(BrokenStreams, OfTheDiagnosticsEndTheAdapterByTheSignal) {
  const auto broken = [] { makeBroken(STDERR_FILENO); };
  write(twoTasks("/bin/sh -c \"exit %tn\""));
  expectResult(runWith(newTask(1, 2), broken),
               calling("/bin/sh -c \"exit 1\"", folder()) + processStarted, "", "signal 13");
  // On success there is no output.
  write(twoTasks("/bin/true %tn"));
  expectResult(runWith(newTask(1, 2), broken), linesOf("/bin/true 1", "/bin/true 2"), "", "exit 0");
}

// The duplicate of standard error gets the lowest free descriptor, even if that is one of the
// three.
TEST_F(BrokenStreams, AreWhatTheTaskGets) {
  const std::string output = folder_.file("output");
  const std::string error = folder_.file("error");
  const struct {
    std::vector<int> closed;
    Strings redirected;
    Strings apart;
  } rows[] = {
      {{},
       {"0 /dev/null", "1 " + output, "2 " + output, "3 " + error},
       {"0 /dev/null", "1 " + output, "2 " + error}},
      {{0}, {"0 " + error, "1 " + output, "2 " + output}, {"1 " + output, "2 " + error}},
      {{1}, {"0 /dev/null", "1 " + error, "2 " + error}, {"0 /dev/null", "2 " + error}},
      {{2}, {"0 /dev/null", "1 " + output, "2 " + output}, {"0 /dev/null", "1 " + output}},
      {{0, 1}, {"0 " + error, "2 " + error}, {"2 " + error}},
      {{0, 2}, {"1 " + output, "2 " + output}, {"1 " + output}},
      {{1, 2}, {"0 /dev/null"}, {"0 /dev/null"}},
      {{0, 1, 2}, {}, {}},
  };
  for (const auto& row : rows) {
    for (const bool redirect : {true, false}) {
      SCOPED_TRACE(testing::PrintToString(row.closed) + (redirect ? " redirected" : ""));
      Job job;
      job.arguments = probe();
      job.set("redirectStderr", redirect ? "yes" : "no");
      write(job);
      const ProcessResult result = runWith(newTask(), [&] {
        openAs(STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC);
        openAs(STDERR_FILENO, error, O_WRONLY | O_CREAT | O_TRUNC);
        for (const int descriptor : row.closed) close(descriptor);
      });
      EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
      EXPECT_EQ(report()["descriptor"], redirect ? row.redirected : row.apart);
      EXPECT_EQ(readFile(jobFile_), job.text());
      EXPECT_EQ(readFile(error), "");
      const bool outputIsOpen = std::count(row.closed.begin(), row.closed.end(), 1) == 0;
      EXPECT_EQ(withoutPids(readFile(output)),
                outputIsOpen ? calling(probe(), folder()) + processStarted : "");
    }
  }
}

// Every request, with no open descriptors.
TEST_F(BrokenStreams, AllClosedDoNotChangeTheStatus) {
  const std::string text = twoTasks("/bin/mkdir made%tn").text();
  folder_.write("job.xml", text);
  const struct {
    Strings arguments;
    const char* status;
  } rows[] = {
      {{"-o", "GetInfo"}, "exit 0"},
      {{"-o", "ShutDown"}, "exit 0"},
      {{"-o", "Unknown"}, "exit 255"},
      {{}, "exit 255"},
      {{"-x", "-o", "PingTask", "-j", jobFile_}, "exit 0"},
      {{"-o", "PingTask", "-j", jobFile_, "-e", "1"}, "exit 255"},
      {{"-o", "NewTask", "-j", "/missing.xml"}, "exit 255"},
      {newTask(1, 2), "exit 0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    expectResult(runWith(row.arguments, [] { close_range(0, 2, 0); }), "", "", row.status);
    EXPECT_EQ(readFile(jobFile_), text);
  }
  EXPECT_EQ(files(), (Strings{"job.xml", "made1", "made2"}));
}

// The child's report goes to its standard error: if both are joined and the old one could not be
// kept, to standard output, and the "Calling" line of its buffer goes to its standard output.
TEST_F(BrokenStreams, CarryTheReportOfAMissingProgramIfTheyCan) {
  const std::string line = calling("./missing x", folder());
  const std::string report = cannotExecute("./missing x", "No such file or directory");
  const std::string code = exitCodeLine(-127);
  const struct {
    int closed;
    const char* redirect;
    Strings output;  // its lines, in any order
    std::string error;
  } rows[] = {
      {STDIN_FILENO, "yes", {line, line, processStarted}, report + code},
      {STDIN_FILENO, "no", {line, line, processStarted}, report + code},
      {STDOUT_FILENO, "yes", {}, report + line + code},
      {STDOUT_FILENO, "no", {}, report + code},
      {STDERR_FILENO, "yes", {line, line, report, processStarted}, ""},
      {STDERR_FILENO, "no", {line, line, processStarted}, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.closed) + " closed, redirected: " + row.redirect);
    Job job;
    job.arguments = "./missing x";
    job.set("redirectStderr", row.redirect);
    write(job);
    const ProcessResult result = runWith(newTask(), [&] { close(row.closed); });
    Strings lines;
    std::istringstream output(withoutPids(result.output));
    for (std::string text; std::getline(output, text);) lines.push_back(text + "\n");
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, row.output);
    EXPECT_EQ(result.error, row.error);
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  }
}

class FewDescriptors : public FaultTest {
 protected:
  // The adapter with a limit of `limit` descriptors, 0 to 2 open. Under the lowest limit a program
  // with shared libraries could not be loaded, so the limit applies from right before `main`. A
  // sanitizer would need additional descriptors.
  ProcessOptions limited(const Strings& arguments, int limit) const {
    ProcessOptions options = withFault("few-descriptors", arguments);
    options.environment.emplace_back("RUNLET_DESCRIPTORS", std::to_string(limit));
    options.program = plainAdapterPath;
    return options;
  }
};

TEST_F(FewDescriptors, AreEnoughIfThereAreFour) {
  Job job;
  job.arguments = "/bin/echo ran %tn";
  job.tasks.assign(2, "t");
  job.set("redirectStderr", "no");
  write(job);
  const std::string ran = calling("/bin/echo ran 1", folder()) + processStarted + "ran 1\n" +
                          calling("/bin/echo ran 2", folder()) + processStarted + "ran 2\n";
  for (int limit = 4; limit <= 9; ++limit) {
    SCOPED_TRACE(limit);
    expectResult(runProcess(limited(newTask(1, 2), limit)), ran, "", "exit 0");
  }
  // The duplicate of a redirected standard error is an additional descriptor for the task.
  job.set("redirectStderr", "yes");
  write(job);
  for (int limit = 5; limit <= 9; ++limit) {
    SCOPED_TRACE(limit);
    expectResult(runProcess(limited(newTask(1, 2), limit)), ran, "", "exit 0");
  }
}

// With a limit of three there is none for a job file.
TEST_F(FewDescriptors, WithoutOneToSpareLoadNoJob) {
  write(Job());
  const std::string error = "Runlet adapter: Could not load parameter file " + jobFile_ +
                            ". Error='Failed to open file'.Exiting.\n";
  expectResult(runProcess(limited(newTask(), 3)), "", error, "exit 255");
  expectResult(runProcess(limited({"-o", "PingTask", "-j", jobFile_}, 3)), "", error, "exit 255");
  expectResult(runProcess(limited({"-o", "ShutDown"}, 3)), "", "", "exit 0");
  EXPECT_EQ(files(), Strings{"job.xml"});
}

// The descriptor table fills up while the first task runs. For the second one standard error can be
// joined to standard output, but not saved, so the report goes there.
TEST_F(FewDescriptors, WithoutOneForTheOldStandardErrorLoseIt) {
  Job job;
  job.arguments = "./%tn";
  job.tasks.assign(2, "t");
  write(job);
  script("1", until("go"));
  ProcessOptions options = adapter(newTask(1, 2));
  options.program = plainAdapterPath;
  Process process(options);
  ASSERT_NE(announcedChild(&process), -1);
  const rlimit none{3, 3};
  ASSERT_EQ(prlimit(process.pid(), RLIMIT_NOFILE, &none, nullptr), 0);
  folder_.write("go", "");
  const ProcessResult result = process.finish();
  const std::string first = calling("./1", folder()) + processStarted;
  const std::string second = calling("./2", folder());
  const std::string report = cannotExecute("./2", "No such file or directory");
  const std::string output = withoutPids(result.output);
  EXPECT_TRUE(output == first + report + second + second + processStarted ||
              output == first + report + second + processStarted + second ||
              output == first + second + processStarted + report + second)
      << output;
  EXPECT_EQ(result.error, exitCodeLine(-127));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

}  // namespace
}  // namespace runlet_test
