// runlet-job run as a whole.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <regex>
#include <set>
#include <thread>

#include "adapter_test.h"
#include "mounts.h"
#include "programs.h"
#include "pseudo_terminal.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience(20);

// Retries until `holds` returns true. False on time-out.
bool eventually(const std::function<bool()>& holds) {
  const auto deadline = Clock::now() + patience;
  while (!holds()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

const std::regex lineOfAnEnd("task ([0-9]+): (.*)\n");

// Standard error without the lines about tasks that have ended.
std::string withoutEnds(const std::string& error) {
  return std::regex_replace(error, lineOfAnEnd, "");
}

// Asserts that standard error has a line for each task that was started according to the summary,
// with its time unless it has no process, and that they are counted.
void expectEnds(const std::string& error, const std::string& summary) {
  const std::regex line("task ([0-9]+): (.*): /bin/sh.*\n(  log: (.*)\n)?");
  std::smatch total;
  ASSERT_TRUE(std::regex_search(summary, total, std::regex("(?:^|\n)([0-9]+) tasks?: ")))
      << summary;
  std::multiset<std::string> expected;
  for (std::sregex_iterator i(summary.begin(), summary.end(), line), end; i != end; ++i) {
    const std::string how = (*i)[2];
    std::string text = "task " + (*i)[1].str() + ": " + how;
    if (!how.starts_with("cannot")) text += how == "succeeded" ? " in T" : " after T";
    text += " (N of " + total[1].str() + ")";
    if ((*i)[4].matched) text += ", log: " + (*i)[4].str();
    expected.insert(text + "\n");
  }
  std::multiset<std::string> lines;
  std::size_t count = 0;
  for (std::sregex_iterator i(error.begin(), error.end(), lineOfAnEnd), end; i != end; ++i) {
    const std::string number = "(" + std::to_string(++count) + " of ";
    std::string text = std::regex_replace(
        i->str(), std::regex("(in|after) ([0-9]+ ms|[0-9.]+ s|[0-9]+ min( [0-9]+ s)?) "), "$1 T ");
    const std::size_t place = text.find(number);
    EXPECT_NE(place, std::string::npos) << text;
    if (place != std::string::npos) text.replace(place, number.size(), "(N of ");
    lines.insert(text);
  }
  EXPECT_EQ(lines, expected);
}

bool exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

// A job whose tasks are shell scripts; its logs are in the folder "logs".
class Run : public testing::Test {
 protected:
  Run() {
    job_.arguments = "/bin/sh -c \"%tp1\"";
    job_.set("TaskTimeout", "30").set("LogFolder", "logs");
  }

  ProcessOptions options(const Strings& tasks, const Strings& more = {}) {
    job_.tasks = tasks;
    folder_.write("shot.xml", job_.text());
    Strings arguments = {"run", jobFile_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return tool(arguments);
  }

  // With a fault of tests/support/faults.cpp.
  ProcessOptions withFault(const std::string& fault, const Strings& tasks,
                           const Strings& more = {}) {
    ProcessOptions started = options(tasks, more);
    started.environment.insert(started.environment.end(),
                               {{"LD_PRELOAD", faultsPath},
                                {"RUNLET_FAULT", fault},
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    return started;
  }

  ProcessResult run(const Strings& tasks, const Strings& more = {}) {
    return runProcess(options(tasks, more));
  }

  // The warnings for a job that runs as the user who runs the tests.
  std::string warnings() const {
    if (getuid() != 0 || isOfAnother_) return "";
    return "runlet-job: run: 1 warning; see: runlet-job check " + jobFile_ + "\n";
  }

  // Asserts the whole output of a run. Apart from the lines about tasks that have ended, standard
  // error has the warnings and `messages`.
  void expectRun(const ProcessResult& result, const std::string& output, const std::string& status,
                 const std::string& messages = "") const {
    expectEnds(withoutBatchIds(result.error), output);
    ProcessResult rest = result;
    rest.error = withoutEnds(result.error);
    expectTool(rest, output, warnings() + messages, status);
  }

  // The summary lines of a task with that script.
  std::string line(int task, const std::string& end, const std::string& script) const {
    std::string text =
        "task " + std::to_string(task) + ": " + end + ": /bin/sh -c '" + script + "'\n";
    if (end == "succeeded") return text;
    return text.append("  log: ").append(shownLog(task)).append("\n");
  }

  // The path of the log, as it is shown with "ID" for the batch.
  std::string shownLog(int task) const {
    const std::string folder = folder_.file(isOfChunk_ ? "logs" : "logs/shot-ID");
    return folder + "/shot-" + std::to_string(task) + ".log";
  }

  std::string logPath(int task) const {
    const std::string logs = folder_.file("logs");
    return (isOfChunk_ ? logs : batchFolder(logs, "shot")) + "/shot-" + std::to_string(task) +
           ".log";
  }

  void expectLog(int task, const std::string& script, const std::string& text) const {
    EXPECT_EQ(withoutKeyringNote(readFile(logPath(task))),
              calling("/bin/sh -c \"" + script + "\"", folder_.path()) + text);
  }

  std::set<std::string> logs() const {
    std::set<std::string> names;
    const std::string folder = batchFolder(folder_.file("logs"), "shot");
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  TempFolder folder_;
  Job job_;
  const std::string jobFile_ = folder_.file("shot.xml");
  bool isOfAnother_ = false;
  bool isOfChunk_ = false;  // of an array element, whose logs are in no folder of their own
};

using Names = std::set<std::string>;

TEST_F(Run, ReportsHowEveryTaskEnded) {
  const Strings tasks = {"echo a; echo b >&2", "echo c; exit 3", "kill -9 $$", "exit 0"};
  expectRun(run(tasks),
            line(2, "failed with exit code 3", tasks[1]) +
                line(3, "killed by signal 9 (Killed)", tasks[2]) + line(1, "succeeded", tasks[0]) +
                line(4, "succeeded", tasks[3]) +
                "4 tasks: 2 succeeded, 1 failed (2), 1 killed (3)\n",
            "exit 1");
  expectLog(1, tasks[0], "a\nb\n");
  expectLog(2, tasks[1], "c\n");
  expectLog(3, tasks[2], "");
  expectLog(4, tasks[3], "");
}

TEST_F(Run, SucceedsWhenAllTasksDo) {
  std::string output;
  for (int i = 1; i <= 12; ++i) output += line(i, "succeeded", "exit 0");
  expectRun(run(Strings(12, "exit 0"), {"--jobs", "4"}), output + "12 tasks: 12 succeeded\n",
            "exit 0");
  EXPECT_EQ(logs(), (Names{"shot-01.log", "shot-02.log", "shot-03.log", "shot-04.log",
                           "shot-05.log", "shot-06.log", "shot-07.log", "shot-08.log",
                           "shot-09.log", "shot-10.log", "shot-11.log", "shot-12.log"}));
}

TEST_F(Run, RunsTheTasksOfTheRange) {
  const Strings tasks = {"exit 1", "echo 2", "echo 3", "exit 4"};
  expectRun(
      run(tasks, {"-s", "2", "-n", "2"}),
      line(2, "succeeded", tasks[1]) + line(3, "succeeded", tasks[2]) + "2 tasks: 2 succeeded\n",
      "exit 0");
  EXPECT_EQ(logs(), (Names{"shot-2.log", "shot-3.log"}));
}

TEST_F(Run, RunsOneTaskAtATimeUnlessMoreAreRequested) {
  const std::string script = "echo $(ls | grep -c now); touch now; sleep 0.05; rm now";
  EXPECT_EQ(describeStatus(run(Strings(3, script)).waitStatus), "exit 0");
  for (int i = 1; i <= 3; ++i) expectLog(i, script, "0\n");
  const std::string together = "touch now-$$; until [ $(ls | grep -c now) -ge 3 ]; do :; done";
  EXPECT_EQ(describeStatus(run(Strings(3, together), {"--jobs", "3"}).waitStatus), "exit 0");
}

TEST_F(Run, NeedsAPositiveNumberOfTasksAtATime) {
  for (const char* number : {"0", "-1", "two", "1.5", "2147483648"}) {
    expectTool(run({"exit 0"}, {std::string("--jobs=") + number}), "",
               "runlet-job: --jobs: " + notPositive(number) + "\nSee: runlet-job run --help\n",
               "exit 2");
  }
  EXPECT_FALSE(exists(folder_.file("logs")));
}

TEST_F(Run, DoesNothingForAJobWithAnError) {
  job_.arguments = "/bin/touch %t";
  const ProcessResult result = run({"exit 0"});
  expectTool(result, "", runTool({"check", jobFile_}).output, "exit 1");
  EXPECT_NE(result.error.find("error RJ060"), std::string::npos);
  EXPECT_FALSE(exists(folder_.file("logs")));
}

TEST_F(Run, DoesNothingIfThereCanBeNoLogs) {
  job_.set("LogFolder", folder_.write("file", "") + "/logs");
  expectTool(run({"touch ran"}), "",
             warnings() + "runlet-job: run: cannot write logs to " + folder_.file("file") +
                 "/logs/shot-ID: Not a directory\n",
             "exit 2");
  EXPECT_FALSE(exists(folder_.file("ran")));
}

TEST_F(Run, ContinuesIfALogCannotBeOpened) {
  isOfChunk_ = true;
  folder_.makeFolder("logs");
  folder_.makeFolder("logs/shot-1.log");
  expectRun(run({"exit 0", "exit 0"}, {"--tell-ends", "1"}),
            line(1, "cannot open log (Is a directory)", "exit 0") + line(2, "succeeded", "exit 0") +
                "2 tasks: 1 succeeded, 1 cannot open log (Is a directory) (1)\n"
                "runlet-job-ends 1 succeeded 0 2\nrunlet-job-ends 1 other 0 1\n",
            "exit 1");
}

TEST_F(Run, ResolvesPathsInTheFolderWhereItIsStarted) {
  const std::string work = folder_.makeFolder("work");
  job_.set("WorkingFolder", "work");
  ProcessOptions started = options({"pwd"});
  started.arguments[2] = "shot.xml";
  started.folder = folder_.path();
  const ProcessResult result = runProcess(started);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  EXPECT_EQ(readFile(batchFolder(work + "/logs", "shot") + "/shot-1.log"),
            calling("/bin/sh -c \"pwd\"", "work") + work + "\n");
}

TEST_F(Run, HasTasksInASessionOfTheirOwnWithTheirThreeStreams) {
  job_.arguments = probePath + " %tp1";
  job_.set("redirectStderr", "no");
  const std::string report = folder_.file("report");
  const ProcessResult result = run({report});
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  const std::string text = readFile(report);
  const std::size_t pidStart = text.find("\npid ") + 5;
  const std::string pid = text.substr(pidStart, text.find('\n', pidStart) - pidStart);
  const std::string starter = std::to_string(result.pid);
  EXPECT_NE(text.find("\nparent " + starter + "\ngroup " + pid + "\nsession " + pid + "\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\ndescriptor 0 /dev/null\ndescriptor 1 " + logPath(1) + "\ndescriptor 2 " +
                      logPath(1) + "\nUmask:"),
            std::string::npos)
      << text;
}

// A task overwrites the file, and another one removes it.
TEST_F(Run, RunsTheJobThatItHasCheckedThoughTheFileChanges) {
  const Strings tasks = {"echo broken >shot.xml", "echo second", "rm shot.xml", "echo last"};
  expectRun(run(tasks),
            line(1, "succeeded", tasks[0]) + line(2, "succeeded", tasks[1]) +
                line(3, "succeeded", tasks[2]) + line(4, "succeeded", tasks[3]) +
                "4 tasks: 4 succeeded\n",
            "exit 0");
  expectLog(2, tasks[1], "second\n");
  expectLog(4, tasks[3], "last\n");
}

// As in an upgrade while the job runs.
TEST_F(Run, IsNotAffectedWhenItsProgramIsReplaced) {
  const std::string program = folder_.file("runlet-job");
  std::filesystem::copy_file(toolPath, program);
  const Strings tasks = {"rm runlet-job; echo exit 9 >runlet-job; chmod +x runlet-job", "echo x"};
  ProcessOptions started = options(tasks);
  started.program = program;
  expectRun(
      runProcess(started),
      line(1, "succeeded", tasks[0]) + line(2, "succeeded", tasks[1]) + "2 tasks: 2 succeeded\n",
      "exit 0");
}

constexpr char starterGoneReason[] = "stopped early: the process that starts the tasks has ended\n";
constexpr char starterGone[] =
    "runlet-job: run: the process that starts the tasks has ended; no further tasks are started\n";

TEST_F(Run, StartsNothingMoreWhenItsStarterHasEnded) {
  const Strings tasks = {"touch ready; until [ -e go ]; do sleep 0.01; done; exit 4", "exit 0",
                         "exit 0"};
  Process process(options(tasks));
  ASSERT_TRUE(eventually([&] { return exists(folder_.file("ready")); }));
  const pid_t starter = starterOf(process.pid());
  ASSERT_GT(starter, 0);
  ASSERT_EQ(kill(starter, SIGKILL), 0);
  ASSERT_TRUE(eventually([&] { return starterOf(process.pid()) == -1; }));
  folder_.write("go", "");
  expectRun(process.finish(),
            line(1, "failed with exit code 4", tasks[0]) + starterGoneReason +
                "3 tasks: 1 failed (1), 2 not started (2-3)\n",
            "exit 1", starterGone);
}

// It records and ends everything as usual.
TEST_F(Run, ContinuesIfNobodyReadsItsOutput) {
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    ProcessOptions started = options({"exit 0", "sleep 0.1", "exit 0"}, {"--jobs", "1"});
    started.prepare = [stream] {
      int ends[2];
      if (pipe(ends) != 0 || close(ends[0]) != 0 || dup2(ends[1], stream) != stream) _exit(95);
    };
    const ProcessResult result = runProcess(started);
    EXPECT_EQ(describeStatus(result.waitStatus), stream == STDOUT_FILENO ? "exit 2" : "exit 0");
    EXPECT_EQ(withoutEnds(withoutBatchLine(result.error)),
              stream == STDERR_FILENO
                  ? ""
                  : warnings() + "runlet-job: cannot write to standard output: Broken pipe\n");
    const std::string record = readFile(started.arguments.back());
    EXPECT_NE(record.find("{\"event\":\"stop\""), std::string::npos) << record;
  }
}

TEST_F(Run, StartsNoTaskThatItDoesNotKnowOf) {
  ProcessOptions started = withFault("lost-answer", {"touch ran"});
  // Every started process has it open for writing.
  const std::string life = folder_.file("life");
  ASSERT_EQ(mkfifo(life.c_str(), 0600), 0);
  const int end = open(life.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  started.prepare = [&] { openAs(7, life, O_WRONLY); };
  expectRun(runProcess(started), std::string(starterGoneReason) + "1 task: 1 not started (1)\n",
            "exit 1", starterGone);
  char byte = 0;
  EXPECT_TRUE(eventually([&] { return read(end, &byte, 1) == 0; }));
  close(end);
  EXPECT_FALSE(exists(folder_.file("ran")));
}

TEST_F(Run, ReportsInTheLogWhyATaskIsNotStarted) {
  expectRun(runProcess(withFault("no-session", {"touch ran"})),
            line(1, "failed with exit code 125 (task not set up)", "touch ran") +
                "1 task: 1 failed (1)\n",
            "exit 1");
  EXPECT_EQ(readFile(logPath(1)), "runlet-job: task not started: Operation not permitted\n");
  EXPECT_FALSE(exists(folder_.file("ran")));
}

TEST_F(Run, ReportsThatItCannotCreateTheProcessThatStartsTasks) {
  const struct {
    const char* fault;
    int error;
  } rows[] = {{"no-sockets", EMFILE}, {"no-fork", EAGAIN}};
  for (const auto& row : rows) {
    expectTool(runProcess(withFault(row.fault, {"touch ran"})), "",
               std::string("runlet-job: run: cannot create the process that starts tasks: ") +
                   std::strerror(row.error) + "\n",
               "exit 2");
    EXPECT_FALSE(exists(folder_.file("ran")));
  }
}

// It does not count as a success.
TEST_F(Run, ReportsThatTheEndOfATaskIsUnknown) {
  const std::string end = "end unknown (No child processes)";
  expectRun(runProcess(withFault("lost-status", {"exit 3", "exit 4"})),
            line(1, end, "exit 3") + line(2, "failed with exit code 4", "exit 4") +
                "2 tasks: 1 failed (2), 1 " + end + " (1)\n",
            "exit 1");
}

std::string cannotFindOut(const std::string& reason, const std::string& fate) {
  return "runlet-job: run: cannot find out how tasks end: " + reason + "; running tasks are " +
         fate + ", and no further tasks are started\n";
}

// Nor does it wait if there is nothing to wait for.
TEST_F(Run, EndsIfItCannotFindOutHowTasksEnd) {
  const struct {
    const char* fault;
    std::string reason;
    const char* fate;
  } rows[] = {{"waitid-refused", "Operation not permitted", "killed"},
              {"no-children", "No child processes", "left running"}};
  const Strings tasks = {"until [ -e ready ]; do sleep 0.01; done", "touch ready; sleep 60",
                         "exit 0"};
  for (const auto& row : rows) {
    unlink(folder_.file("ready").c_str());
    const std::string end = "end unknown (" + row.reason + ")";
    expectRun(runProcess(withFault(row.fault, tasks, {"--jobs", "2"})),
              line(1, end, tasks[0]) + line(2, end, tasks[1]) +
                  "stopped early: cannot find out how tasks end: " + row.reason + "\n" +
                  "3 tasks: 1 not started (3), 2 " + end + " (1-2)\n",
              "exit 1", cannotFindOut(row.reason, row.fate));
  }
}

// A child that cannot be reaped would be returned first forever.
TEST_F(Run, EndsIfNoStatusCanBeTaken) {
  const std::string end = "end unknown (No child processes)";
  expectRun(runProcess(withFault("kept-status", {"exit 3", "exit 4"})),
            line(1, end, "exit 3") +
                "stopped early: cannot find out how tasks end: No child processes\n"
                "2 tasks: 1 not started (2), 1 " +
                end + " (1)\n",
            "exit 1", cannotFindOut("No child processes", "left running"));
}

TEST_F(Run, SeesHowTasksEndedEvenIfItsStarterIgnoresChildren) {
  ProcessOptions started = options({"exit 3"});
  started.prepare = [] { std::signal(SIGCHLD, SIG_IGN); };
  expectRun(runProcess(started),
            line(1, "failed with exit code 3", "exit 3") + "1 task: 1 failed (1)\n", "exit 1");
}

// With a clock that runs sixty times as fast.
TEST_F(Run, EndsTasksOverTheTimeLimitInMinutes) {
  job_.set("TaskTimeout", "1");
  const Strings tasks = {"sleep 0.3", "sleep 60", "trap : TERM; while :; do sleep 60; done"};
  const ProcessOptions started = withFault("fast-clock", tasks, {"--jobs", "3"});
  const auto start = Clock::now();
  expectRun(runProcess(started),
            line(2, "timed out", tasks[1]) + line(3, "timed out", tasks[2]) +
                line(1, "succeeded", tasks[0]) + "3 tasks: 1 succeeded, 2 timed out (2-3)\n",
            "exit 1");
  const auto time = Clock::now() - start;
  EXPECT_GE(time, std::chrono::milliseconds(70'000 / 60));
  EXPECT_LT(time, patience);
}

TEST_F(Run, HasATimeLimitOnlyIfThatIsAboveZero) {
  for (const char* limit : {"0", "-1", "-2147483648", "35792", "2147483647"}) {
    job_.set("TaskTimeout", limit);
    const ProcessResult result = run({"sleep 0.05"});
    EXPECT_EQ(result.output, line(1, "succeeded", "sleep 0.05") + "1 task: 1 succeeded\n") << limit;
  }
}

std::string interruptedBy(int signal) {
  return "interrupted by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

// The line of the summary, and that on standard error while that task runs.
std::string interruptedReason(int signal) {
  return "stopped early: " + interruptedBy(signal) + "\n";
}

std::string interrupted(int signal, int task) {
  return interruptedBy(signal) + ": waiting up to 10 s for 1 running task (" +
         std::to_string(task) + "); interrupt again to kill it\n";
}

TEST_F(Run, EndsByTheInterruptingSignalAfterReportingWhatIsLeft) {
  const Strings tasks = {"exit 1", "touch ready; sleep 60", "exit 0"};
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    unlink(folder_.file("ready").c_str());
    Process process(options(tasks));
    ASSERT_TRUE(eventually([&] { return exists(folder_.file("ready")); }));
    kill(process.pid(), signal);
    expectRun(process.finish(),
              line(1, "failed with exit code 1", tasks[0]) + line(2, "interrupted", tasks[1]) +
                  interruptedReason(signal) +
                  "3 tasks: 1 failed (1), 1 interrupted (2), 1 not started (3)\n",
              "signal " + std::to_string(signal), interrupted(signal, 2));
  }
}

// For `submit`, which runs it on a cluster.
TEST_F(Run, WritesEndLinesOnRequest) {
  const Strings tasks = {"exit 3", "kill -9 $$", "exit 3", "kill -TERM $PPID; sleep 60", "exit 0"};
  isOfChunk_ = true;
  expectRun(run(tasks, {"--tell-ends", "ab:12_3"}),
            line(1, "failed with exit code 3", tasks[0]) +
                line(2, "killed by signal 9 (Killed)", tasks[1]) +
                line(3, "failed with exit code 3", tasks[2]) + line(4, "interrupted", tasks[3]) +
                interruptedReason(SIGTERM) +
                "5 tasks: 2 failed (1, 3), 1 killed (2), 1 interrupted (4), 1 not started (5)\n"
                "runlet-job-ends ab:12_3 failed 3 1,3\n"
                "runlet-job-ends ab:12_3 killed 9 2\n"
                "runlet-job-ends ab:12_3 interrupted 0 4\n"
                "runlet-job-ends ab:12_3 not-started 0 5\n",
            "signal 15", interrupted(SIGTERM, 4));
}

TEST_F(Run, RefusesEndLinesWithAnIdThatIsNotOneWord) {
  expectTool(run({"exit 0"}, {"--tell-ends", "a b"}), "",
             "runlet-job: run: --tell-ends: a b is not a valid id\n", "exit 2");
}

// The init process of a container cannot end by its own signal.
TEST_F(Run, EndsWithTheStatusOfFailedTasksIfNoSignalEndsIt) {
  REQUIRE_MOUNTS();
  ProcessOptions started = options({"kill -TERM $PPID; sleep 60"});
  started.prepare = [] {
    if (unshare(CLONE_NEWPID) != 0) _exit(2);
    const pid_t first = fork();
    if (first == 0) return;
    int status = 0;
    _exit(waitpid(first, &status, 0) == first && WIFEXITED(status) ? WEXITSTATUS(status) : 3);
  };
  expectRun(runProcess(started),
            line(1, "interrupted", "kill -TERM $PPID; sleep 60") + interruptedReason(SIGTERM) +
                "1 task: 1 interrupted (1)\n",
            "exit 1", interrupted(SIGTERM, 1));
}

TEST_F(Run, SaysOnlyWhatFailsIfQuiet) {
  const Strings tasks = {"exit 0", "exit 3", "exit 0"};
  const ProcessResult result = run(tasks, {"--quiet"});
  expectTool(result,
             line(2, "failed with exit code 3", tasks[1]) + "3 tasks: 2 succeeded, 1 failed (2)\n",
             warnings(), "exit 1");
}

TEST_F(Run, TriesAgainAsOftenAsItMay) {
  const Strings tasks = {"echo run >>first; exit 3",
                         "echo run >>second; [ $(grep -c run second) = 2 ]"};
  const ProcessResult result = run(tasks, {"--retries", "2"});
  const auto log = [this](const std::string& attempt) {
    return folder_.file("logs/shot-ID/shot-" + attempt + ".log");
  };
  EXPECT_EQ(withoutBatchIds(result.output),
            "task 1: failed with exit code 3: /bin/sh -c '" + tasks[0] + "'\n  log: " + log("1.3") +
                "\n" + line(2, "succeeded", tasks[1]) + "2 tasks: 1 succeeded, 1 failed (1)\n");
  EXPECT_EQ(std::regex_replace(withoutBatchIds(withoutBatchLine(result.error)),
                               std::regex("[0-9]+ ms|[0-9.]+ s"), "T"),
            warnings() +
                "task 1: failed with exit code 3 after T, will be tried again, log: " + log("1") +
                "\ntask 2: failed with exit code 1 after T, will be tried again, log: " + log("2") +
                "\ntask 1: failed with exit code 3 after T, will be tried again, log: " +
                log("1.2") + "\ntask 2: succeeded in T (1 of 2)\n" +
                "task 1: failed with exit code 3 after T (2 of 2), log: " + log("1.3") + "\n");
  EXPECT_EQ(readFile(folder_.file("first")), "run\nrun\nrun\n");
}

TEST_F(Run, StopsEarlyOnRequest) {
  const Strings tasks = {"exit 0", "exit 3", "exit 4", "exit 0"};
  const struct {
    const char* option;
    int failures;
  } rows[] = {
      {"soon", 1}, {"now", 1}, {"soon,fail=2", 2}, {"soon,fail=50%", 2}, {"now,fail=26%", 2}};
  for (const auto& row : rows) {
    const bool isFirst = row.failures == 1;
    const std::string reason =
        (isFirst ? "1 task" : "2 tasks") + std::string(" failed (--halt ") + row.option + ")";
    expectRun(run(tasks, {"--halt", row.option}),
              line(2, "failed with exit code 3", tasks[1]) +
                  (isFirst ? "" : line(3, "failed with exit code 4", tasks[2])) +
                  line(1, "succeeded", tasks[0]) + "stopped early: " + reason +
                  "\n4 tasks: 1 succeeded, " +
                  (isFirst ? "1 failed (2), 2 not started (3-4)\n"
                           : "2 failed (2-3), 1 not started (4)\n"),
              "exit 1", "runlet-job: run: " + reason + "; no further tasks are started\n");
  }
}

// With a clock that runs sixty times as fast.
TEST_F(Run, EndsTasksOverTheShorterTimeLimit) {
  const struct {
    const char* ofJob;
    const char* option;
    const char* end;
  } rows[] = {{"60", "30s", "timed out"},
              {"1", "1d", "timed out"},
              {"35791", "1m", "timed out"},
              {"0", "1m", "timed out"},
              {"35791", "1h", "succeeded"}};
  const std::string task = "sleep 2";
  for (const auto& row : rows) {
    job_.set("TaskTimeout", row.ofJob);
    const ProcessResult result =
        runProcess(withFault("fast-clock", {task}, {"--timeout", row.option}));
    EXPECT_TRUE(withoutBatchIds(result.output).starts_with(line(1, row.end, task)))
        << row.ofJob << " " << row.option;
  }
}

TEST_F(Run, RefusesLimitsThatAreNone) {
  const struct {
    const char* option;
    const char* value;
    const char* complaint;
  } rows[] = {
      {"--timeout", "90", "is not a time such as 90s, 5m, 2h or 1d"},
      {"--halt", "later", "is neither soon nor now, alone or with ,fail=N or ,fail=N%"},
  };
  for (const auto& row : rows) {
    expectTool(run({"exit 0"}, {row.option, row.value}), "",
               std::string("runlet-job: ") + row.option + ": " + row.value + " " + row.complaint +
                   "\nSee: runlet-job run --help\n",
               "exit 2");
  }
  EXPECT_EQ(describeStatus(run({"exit 0"}, {"--retries=-1"}).waitStatus), "exit 2");
  EXPECT_FALSE(exists(folder_.file("logs")));
}

// The process may use only one.
TEST_F(Run, RunsATaskForEachProcessorIfAsked) {
  const std::string script = "echo $(ls | grep -c now); touch now; sleep 0.05; rm now";
  ProcessOptions started = options(Strings(3, script), {"--jobs", "auto"});
  started.prepare = [] {
    cpu_set_t set;
    sched_getaffinity(0, sizeof set, &set);
    int first = 0;
    while (!CPU_ISSET(first, &set)) ++first;
    CPU_ZERO(&set);
    CPU_SET(first, &set);
    sched_setaffinity(0, sizeof set, &set);
  };
  EXPECT_EQ(describeStatus(runProcess(started).waitStatus), "exit 0");
  for (int i = 1; i <= 3; ++i) expectLog(i, script, "0\n");
}

// The bar appears even if no task ends.
TEST_F(Run, ShowsABarOnATerminal) {
  const Terminal terminal;
  ProcessOptions started = options({"until [ -e go ]; do sleep 0.01; done"});
  started.prepare = [&] { openAs(STDERR_FILENO, terminal.name(), O_WRONLY | O_NOCTTY); };
  Process process(started);
  std::string written;
  EXPECT_TRUE(eventually([&] {
    written += terminal.written();
    return written.find("\rrunning [" + std::string(40, ' ') + "] 0 of 1, 1 running\033[K") !=
           std::string::npos;
  }));
  folder_.write("go", "");
  EXPECT_EQ(describeStatus(process.finish().waitStatus), "exit 0");
  written += terminal.written();
  EXPECT_TRUE(written.ends_with("\r\033[K"));
}

class RunAsAnother : public Run {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    const std::string id = std::to_string(otherId);
    job_.set("uid", id).set("gid", id);
    isOfAnother_ = true;
  }
};

TEST_F(RunAsAnother, HasLogsOfThatUser) {
  chmod(folder_.path().c_str(), 0777);
  expectRun(run({"id -u"}), line(1, "succeeded", "id -u") + "1 task: 1 succeeded\n", "exit 0");
  expectLog(1, "id -u", std::to_string(otherId) + "\n");
  for (const std::string& path : {logPath(1), folder_.file("logs")}) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, otherId) << path;
    EXPECT_EQ(status.st_gid, otherId) << path;
  }
}

// A user who may write to the job file cannot influence tasks that have not started yet.
TEST_F(RunAsAnother, RunsNoTaskAsRootBecauseOfAnEditOfTheJob) {
  const std::string edit = "echo \"$(sed s/65534/0/g shot.xml)\" >shot.xml; grep -c 65534 shot.xml";
  job_.arguments = "/bin/sh %tp1";
  chmod(folder_.path().c_str(), 0777);
  folder_.write("edit", edit);
  folder_.write("who", "id -u");
  ProcessOptions started = options({"edit", "who"});
  chmod(jobFile_.c_str(), 0666);
  const ProcessResult result = runProcess(started);
  EXPECT_EQ(withoutEnds(withoutBatchLine(result.error)), "");
  EXPECT_TRUE(readFile(logPath(1)).ends_with("\n0\n")) << readFile(logPath(1));
  EXPECT_TRUE(readFile(logPath(2)).ends_with("\n65534\n")) << readFile(logPath(2));
}

TEST_F(RunAsAnother, DoesNotWriteWhereALinkOfThatUserLeads) {
  isOfChunk_ = true;  // so that the name of the log can be guessed
  const std::string secret = folder_.write("of root", "kept");
  chmod(folder_.path().c_str(), 0777);
  folder_.makeFolder("logs", 0777);
  ASSERT_EQ(symlink(secret.c_str(), logPath(1).c_str()), 0);
  expectRun(
      run({"echo ran"}, {"--tell-ends", "1"}),
      line(1, "succeeded", "echo ran") + "1 task: 1 succeeded\nrunlet-job-ends 1 succeeded 0 1\n",
      "exit 0");
  expectLog(1, "echo ran", "ran\n");
  EXPECT_EQ(readFile(secret), "kept");
}

// An earlier task may have turned the run folder into a link.
TEST_F(RunAsAnother, EntersNoFolderThatIsClosedToThatUser) {
  chmod(folder_.path().c_str(), 0777);
  folder_.makeFolder("open", 0755);
  const std::string closed = folder_.makeFolder("closed", 0700);
  folder_.makeFolder("closed/inner", 0755);
  folder_.write("closed/inner/file", "of root");
  const std::string link = folder_.file("link");
  ASSERT_EQ(symlink("open", link.c_str()), 0);
  job_.set("WorkingFolder", link).set("LogFolder", folder_.file("logs"));
  const std::string task = "ln -sfn closed/inner " + link;
  const ProcessResult result = run({task, "cat file"});
  EXPECT_TRUE(result.output.ends_with("2 tasks: 1 succeeded, 1 failed (2)\n")) << result.output;
  EXPECT_EQ(readFile(logPath(2)), "Calling '/bin/sh -c \"cat file\"' from '" + link +
                                      "'\nRunlet adapter: Could not set working folder : '" + link +
                                      "': Permission denied\n");
}

TEST_F(RunAsAnother, NeedsTheFolderOfTheApplication) {
  chmod(folder_.path().c_str(), 0777);
  expectTool(run({"touch ran"}, {"-a", "tool"}), "",
             "runlet-job: -a tool: a task of another user needs a full "
             "path\n",
             "exit 2");
  EXPECT_FALSE(exists(folder_.file("ran")));
}

}  // namespace
}  // namespace runlet_test
