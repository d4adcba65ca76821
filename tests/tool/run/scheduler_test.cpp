// Running tasks as processes, several at a time.

#include "tool/batch/scheduler.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <new>
#include <numeric>
#include <sstream>
#include <thread>

#include "programs.h"
#include "temp_folder.h"
#include "tool/batch/starter.h"

namespace runlet_tool {
namespace {

using runlet_test::readFile;
using runlet_test::TempFolder;
using std::chrono::milliseconds;
using Strings = std::vector<std::string>;
using Ends = std::vector<TaskEnd>;

constexpr milliseconds limit(1000);  // enough for a shell to start
constexpr milliseconds shortTime(200);
constexpr milliseconds never = std::chrono::hours(1);
constexpr milliseconds patience = std::chrono::seconds(20);

const TaskEnd succeeded{Ending::succeeded, 0, ""};
const TaskEnd timedOut{Ending::timedOut, 0, ""};
const TaskEnd interrupted{Ending::interrupted, 0, ""};
const TaskEnd notStarted{Ending::notStarted, 0, ""};

// For scripts: waits until there are that many files matching the pattern.
constexpr char await[] =
    "await() { while [ $(ls $1 2>/dev/null | wc -l) -lt $2 ]; do sleep 0.01; done; }\n";

// Shows nothing but messages.
RunOutcome runQuietly(const TaskSource& tasks, const SchedulerLimits& limits,
                      const HeldSignals& held) {
  std::vector<std::int32_t> numbers(tasks.count);
  std::iota(numbers.begin(), numbers.end(), 1);
  RunDisplay display(
      numbers, [](std::size_t) { return ""; }, true);
  return runTasks(tasks, limits, held, &display);
}

// Signals have their default dispositions, whoever started the tests.
class Scheduler : public testing::Test {
 protected:
  Scheduler() {
    for (const int signal : signals) std::signal(signal, SIG_DFL);
  }

  static constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

  // Tasks of the caller with those command lines, in the folder of the test.
  TaskSource source(const Strings& commands, Starter* starter) const {
    return {commands.size(), [this](std::size_t index) { return openLog(index); },
            [this, commands, starter](std::size_t index, int log, const Announce& announce,
                                      pid_t* process) {
              return starter->start(startOf(commands[index]), log, announce, process);
            }};
  }

  runlet::TaskStart startOf(const std::string& command) const {
    return {.folder = folder_.path(),
            .commandLine = command,
            .chmodPath = "",
            .rights = {static_cast<std::int32_t>(getegid()), static_cast<std::int32_t>(geteuid()),
                       "", 022},
            .redirectStderr = true};
  }

  RunOutcome runCommands(const Strings& commands, const SchedulerLimits& limits) const {
    Starter starter;
    const HeldSignals held;
    return runQuietly(source(commands, &starter), limits, held);
  }

  // Runs shell scripts.
  RunOutcome run(const Strings& scripts, const SchedulerLimits& limits) const {
    Strings commands;
    for (const std::string& script : scripts) {
      const std::string name = "script-" + std::to_string(commands.size());
      commands.push_back("/bin/sh " + folder_.write(name, await + script));
    }
    return runCommands(commands, limits);
  }

  RunOutcome run(const Strings& scripts, std::int32_t atATime = 1) const {
    return run(scripts, {atATime, patience, shortTime});
  }

  int openLog(std::size_t index) const {
    return open(logPath(index).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  }

  std::string logPath(std::size_t index) const {
    return folder_.file("log-" + std::to_string(index));
  }

  // The output of the task itself.
  std::string log(std::size_t index) const {
    const std::string text = readFile(logPath(index));
    const std::string announcement = "Calling '/bin/sh " + folder_.path() + "/script-" +
                                     std::to_string(index) + "' from '" + folder_.path() + "'\n";
    EXPECT_EQ(text.substr(0, announcement.size()), announcement);
    return text.substr(std::min(announcement.size(), text.size()));
  }

  TempFolder folder_;
};

void expectOutcome(const RunOutcome& outcome, const Ends& ends, int signal = 0) {
  EXPECT_EQ(outcome.signal, signal);
  ASSERT_EQ(outcome.ends.size(), ends.size());
  for (std::size_t i = 0; i < ends.size(); ++i) {
    EXPECT_EQ(describe(outcome.ends[i]), describe(ends[i])) << "task " << i;
    EXPECT_EQ(outcome.ends[i], ends[i]) << "task " << i;
  }
}

class StopWatch {
 public:
  milliseconds time() const {
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_);
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

TEST_F(Scheduler, HasNothingToDoWithoutATask) {
  expectOutcome(run({}), {});
}

TEST_F(Scheduler, RunsTasksInSequence) {
  Strings scripts;
  for (int i = 0; i < 5; ++i) {
    scripts.push_back("echo begin " + std::to_string(i) + " >>all; sleep 0.02; echo end >>all");
  }
  expectOutcome(run(scripts), Ends(5, succeeded));
  EXPECT_EQ(readFile(folder_.file("all")),
            "begin 0\nend\nbegin 1\nend\nbegin 2\nend\nbegin 3\nend\nbegin 4\nend\n");
}

// Each task waits until three have started, and counts how many have not ended.
TEST_F(Scheduler, RunsAsManyTasksAtATimeAsItMayAndNoMore) {
  const Strings scripts(9,
                        "touch begun-$$ now-$$; await 'begun-*' 3; ls now-* 2>/dev/null | wc -l; "
                        "sleep 0.05; rm now-$$");
  expectOutcome(run(scripts, 3), Ends(9, succeeded));
  for (std::size_t i = 0; i < scripts.size(); ++i) EXPECT_LE(std::stoi(log(i)), 3) << i;
}

TEST_F(Scheduler, StartsATaskAsSoonAsThereIsRoom) {
  expectOutcome(run({"await third 1", "", "touch third"}, 2), Ends(3, succeeded));
}

TEST_F(Scheduler, MayRunAllTasksAtATime) {
  const Strings scripts(4, "touch begun-$$; await 'begun-*' 4");
  expectOutcome(run(scripts, INT32_MAX), Ends(4, succeeded));
}

TEST_F(Scheduler, ReportsHowEachTaskEnded) {
  const Strings scripts = {"exit 0", "exit 3", "exit 255", "kill -9 $$", "kill -TERM $$"};
  const Ends ends = {succeeded,
                     {Ending::failed, 3, ""},
                     {Ending::failed, 255, ""},
                     {Ending::killed, 9, ""},
                     {Ending::killed, 15, ""}};
  expectOutcome(run(scripts, 1), ends);
  expectOutcome(run(scripts, 4), ends);
}

TEST_F(Scheduler, PutsBothOutputsOfATaskIntoItsLog) {
  expectOutcome(run({"echo 1; echo 2 >&2; echo 3", "echo other"}), Ends(2, succeeded));
  EXPECT_EQ(log(0), "1\n2\n3\n");
  EXPECT_EQ(log(1), "other\n");
}

TEST_F(Scheduler, ContinuesIfATaskCannotBeStarted) {
  Starter starter;
  TaskSource tasks = source(Strings(3, "/bin/true"), &starter);
  const auto start = tasks.start;
  tasks.start = [start](std::size_t index, int log, const Announce& announce, pid_t* process) {
    return index == 1 ? EAGAIN : start(index, log, announce, process);
  };
  const HeldSignals held;
  expectOutcome(runQuietly(tasks, {2, {}, shortTime}, held),
                {succeeded,
                 {Ending::other, 0, "cannot be started (Resource temporarily unavailable)"},
                 succeeded});
}

TEST_F(Scheduler, ContinuesIfALogCannotBeOpened) {
  Starter starter;
  TaskSource tasks = source(Strings(3, "/bin/true"), &starter);
  tasks.openLog = [this](std::size_t index) {
    errno = EACCES;
    return index == 1 ? -1 : openLog(index);
  };
  const HeldSignals held;
  expectOutcome(runQuietly(tasks, {1, {}, shortTime}, held),
                {succeeded, {Ending::other, 0, "cannot open log (Permission denied)"}, succeeded});
}

// What the hooks of a source were told.
struct Told {
  std::vector<std::pair<std::size_t, TaskTry>> started;
  std::vector<std::pair<std::size_t, TaskTry>> ended;
};

void listen(TaskSource* tasks, Told* told) {
  tasks->started = [told](std::size_t index, const TaskTry& begun) {
    told->started.emplace_back(index, begun);
    return true;
  };
  tasks->ended = [told](std::size_t index, TaskTry* attempt) {
    told->ended.emplace_back(index, *attempt);
    return true;
  };
}

// The program that the process runs.
std::string programOf(pid_t process) {
  char path[4096];
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  const ssize_t size = readlink(link.c_str(), path, sizeof path);
  return size < 0 ? "" : std::string(path, static_cast<std::size_t>(size));
}

TEST_F(Scheduler, RunsNoProgramBeforeItsStartIsRecorded) {
  Starter starter;
  TaskSource tasks = source({"/usr/bin/touch ran"}, &starter);
  tasks.started = [this](std::size_t, const TaskTry& begun) {
    for (int i = 0; i < 20; ++i) {
      std::this_thread::sleep_for(milliseconds(1));
      EXPECT_EQ(programOf(begun.process), programOf(getpid()));
      EXPECT_EQ(access(folder_.file("ran").c_str(), F_OK), -1);
    }
    return true;
  };
  const HeldSignals held;
  expectOutcome(runQuietly(tasks, {1, {}, shortTime}, held), {succeeded});
  EXPECT_EQ(access(folder_.file("ran").c_str(), F_OK), 0);
}

// Only a few processes are reaped at a time; then it does not wait for more to end.
TEST_F(Scheduler, IsQuickWithManyChildrenThatAreNoTasks) {
  TaskSource tasks = source({"unused"}, nullptr);
  tasks.start = [](std::size_t, int, const Announce&, pid_t* process) {
    for (int i = 0; i < 400; ++i) {
      *process = fork();
      if (*process == 0) _exit(0);
    }
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(*process), &info, WEXITED | WNOWAIT);
    return 0;
  };
  const HeldSignals held;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(runQuietly(tasks, {1, {}, shortTime}, held).ends, Ends{succeeded});
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  while (waitpid(-1, nullptr, 0) > 0) continue;
}

TEST_F(Scheduler, RunsNothingWhoseStartCannotBeRecorded) {
  Starter starter;
  Told told;
  TaskSource tasks = source({"/bin/true", "/usr/bin/touch ran", "/bin/true"}, &starter);
  listen(&tasks, &told);
  tasks.started = [](std::size_t index, const TaskTry&) {
    errno = ENOSPC;
    return index != 1;
  };
  const HeldSignals held;
  testing::internal::CaptureStderr();
  const RunOutcome outcome = runQuietly(tasks, {1, {}, shortTime}, held);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "runlet-job: run: cannot record the start of a task: No space left on device; no "
            "further tasks are started\n");
  expectOutcome(outcome, {succeeded,
                          {Ending::other, 0, "cannot record its start (No space left on device)"},
                          notStarted});
  EXPECT_EQ(outcome.stopReason, "cannot record the start of a task: No space left on device");
  ASSERT_EQ(told.ended.size(), 2U);
  EXPECT_EQ(told.ended[1].second.process, 0);
  EXPECT_EQ(told.ended[1].second.end, outcome.ends[1]);
  EXPECT_EQ(access(folder_.file("ran").c_str(), F_OK), -1);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0) << "only the starter is left";
}

TEST_F(Scheduler, TellsHowEachTryWent) {
  constexpr std::int64_t block = 64 << 20;
  Starter starter;
  Told told;
  const std::string busy = folder_.write(
      "busy", "i=0; while [ $i -lt 100000 ]; do i=$((i+1)); done; sleep 0.1; echo $$ >process");
  const Strings commands = {"/bin/sh " + busy, "/bin/dd if=/dev/zero of=/dev/null bs=64M count=1",
                            "none", "/bin/false"};
  TaskSource tasks = source(commands, &starter);
  tasks.openLog = [this](std::size_t index) {
    errno = EROFS;
    return index == 3 ? -1 : openLog(index);
  };
  listen(&tasks, &told);
  const HeldSignals held;
  const double begin = static_cast<double>(std::time(nullptr));
  const RunOutcome outcome = runQuietly(tasks, {1, {}, shortTime}, held);
  const double end = static_cast<double>(std::time(nullptr)) + 1;
  ASSERT_EQ(told.started.size(), 3U);
  ASSERT_EQ(told.ended.size(), 4U);
  for (std::size_t i = 0; i < told.ended.size(); ++i) {
    const auto& [index, attempt] = told.ended[i];
    EXPECT_EQ(index, i);
    EXPECT_EQ(attempt.end, outcome.ends[i]);
    EXPECT_LE(begin, attempt.beginTime);
    EXPECT_LE(attempt.beginTime, attempt.endTime);
    EXPECT_LE(attempt.endTime, end);
    if (i == 3) continue;
    EXPECT_EQ(told.started[i].first, i);
    EXPECT_EQ(told.started[i].second.process, attempt.process);
    EXPECT_EQ(told.started[i].second.beginTime, attempt.beginTime);
  }
  const TaskTry& first = told.ended[0].second;
  EXPECT_EQ(std::to_string(first.process) + "\n", readFile(folder_.file("process")));
  EXPECT_GE(first.wall, 0.1);
  EXPECT_GT(first.cpu, 0);
  EXPECT_LT(first.peakMemory, block);
  EXPECT_GE(told.ended[1].second.peakMemory, block);
  EXPECT_EQ(told.ended[2].second.end, (TaskEnd{Ending::failed, 127, ""}));
  EXPECT_EQ(told.ended[3].second.process, 0);
  EXPECT_EQ(told.ended[3].second.end,
            (TaskEnd{Ending::other, 0, "cannot open log (Read-only file system)"}));
}

TEST_F(Scheduler, CountsTheEndThatTheRecordGives) {
  Starter starter;
  TaskSource tasks = source(Strings(2, "/bin/true"), &starter);
  tasks.ended = [](std::size_t index, TaskTry* attempt) {
    if (index == 0) attempt->end = {Ending::other, 0, "lacks a file"};
    return true;
  };
  const HeldSignals held;
  expectOutcome(runQuietly(tasks, {1, {}, shortTime}, held),
                {{Ending::other, 0, "lacks a file"}, succeeded});
}

TEST_F(Scheduler, StartsNothingMoreIfAnEndCannotBeRecorded) {
  Starter starter;
  TaskSource tasks = source(Strings(2, "/bin/true"), &starter);
  tasks.ended = [](std::size_t, TaskTry*) {
    errno = EDQUOT;
    return false;
  };
  const HeldSignals held;
  testing::internal::CaptureStderr();
  const RunOutcome outcome = runQuietly(tasks, {1, {}, shortTime}, held);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "runlet-job: run: cannot record the end of a task: Disk quota exceeded; no further "
            "tasks are started\n");
  expectOutcome(outcome, {succeeded, notStarted});
  EXPECT_EQ(outcome.stopReason, "cannot record the end of a task: Disk quota exceeded");
}

// A line of /proc/PID/status, such as "SigBlk", as a set of signals.
std::uint64_t signalsOf(const std::string& status, const std::string& name) {
  const std::size_t place = status.find(name + ":\t");
  return place == std::string::npos ? 0
                                    : std::stoull(status.substr(place + name.size() + 2), {}, 16);
}

std::uint64_t setOf(int signal) {
  return std::uint64_t{1} << (signal - 1);
}

TEST_F(Scheduler, StartsTasksWithTheMaskThatItWasStartedWith) {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGUSR1);
  sigset_t before;
  sigprocmask(SIG_SETMASK, &mask, &before);
  expectOutcome(run({"exec cat /proc/self/status"}), {succeeded});
  sigset_t after;
  sigprocmask(SIG_SETMASK, &before, &after);
  EXPECT_EQ(signalsOf(log(0), "SigBlk"), setOf(SIGUSR1));
  for (int signal = 1; signal < 32; ++signal) {
    EXPECT_EQ(sigismember(&after, signal), signal == SIGUSR1 ? 1 : 0) << signal;
  }
}

TEST_F(Scheduler, ReportsHowTasksEndedEvenIfChildrenAreIgnored) {
  std::signal(SIGCHLD, SIG_IGN);
  expectOutcome(run({"exit 3", "exec cat /proc/self/status"}),
                {{Ending::failed, 3, ""}, succeeded});
  EXPECT_EQ(std::signal(SIGCHLD, SIG_DFL), SIG_IGN);
  EXPECT_EQ(signalsOf(log(1), "SigIgn") & setOf(SIGCHLD), 0U);
}

// Closes standard streams of this process during its lifetime.
class ClosedStreams {
 public:
  explicit ClosedStreams(const std::vector<int>& streams) : streams_(streams) {
    for (const int stream : streams_) {
      kept_.push_back(fcntl(stream, F_DUPFD_CLOEXEC, 10));
    }
    for (const int stream : streams_) close(stream);
  }
  ~ClosedStreams() {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
      dup2(kept_[i], streams_[i]);
      close(kept_[i]);
    }
  }
  ClosedStreams(const ClosedStreams&) = delete;
  ClosedStreams& operator=(const ClosedStreams&) = delete;

 private:
  std::vector<int> streams_;
  std::vector<int> kept_;
};

// Lines of the probe about the process itself, without its rights and arguments.
std::string selfOf(const std::string& report) {
  std::istringstream lines(report);
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    for (const char* name : {"pid ", "parent ", "group ", "session ", "descriptor "}) {
      if (line.starts_with(name)) text.append(line).append("\n");
    }
  }
  return text;
}

// If streams of this process are closed, the log's own descriptor has one of their numbers.
TEST_F(Scheduler, GivesTasksASessionOfTheirOwnAndTheirThreeStreams) {
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  const std::vector<std::vector<int>> closed = {{},     {0},    {1},    {2},
                                                {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}};
  for (const std::vector<int>& streams : closed) {
    RunOutcome outcome;
    {
      const ClosedStreams these(streams);
      outcome = run({"echo $$; exec " + runlet_test::probePath + " report"});
    }
    expectOutcome(outcome, {succeeded});
    const std::string process = log(0);
    const std::string self = std::to_string(getpid());
    EXPECT_EQ(selfOf(readFile(folder_.file("report"))),
              "pid " + process + "parent " + self + "\ngroup " + process + "session " + process +
                  "descriptor 0 /dev/null\ndescriptor 1 " + logPath(0) + "\ndescriptor 2 " +
                  logPath(0) + "\n");
  }
}

TEST_F(Scheduler, AsksATaskOverTheTimeLimitToEnd) {
  const StopWatch watch;
  const RunOutcome outcome = run(
      {"trap 'echo asked; exit 0' TERM; sleep 60 & wait", "sleep 60", "exit 0"}, {2, limit, never});
  expectOutcome(outcome, {timedOut, timedOut, succeeded});
  EXPECT_EQ(log(0), "asked\n");
  EXPECT_GE(watch.time(), limit);
  EXPECT_LT(watch.time(), patience);
}

TEST_F(Scheduler, KillsATaskThatDoesNotEndInTheGracePeriod) {
  const StopWatch watch;
  expectOutcome(run({"trap '' TERM; sleep 60; sleep 60"}, {1, limit, shortTime}), {timedOut});
  EXPECT_GE(watch.time(), limit + shortTime);
  EXPECT_LT(watch.time(), patience);
}

TEST_F(Scheduler, LimitsTheTimeOfEachTaskSeparately) {
  const Strings scripts(4, "sleep 0.4");
  expectOutcome(run(scripts, {1, limit, shortTime}), Ends(4, succeeded));
}

TEST_F(Scheduler, MayHaveTheLongestPossibleTimeLimit) {
  expectOutcome(run({"exit 0", "sleep 0.05"}, {1, std::chrono::minutes(INT32_MAX), shortTime}),
                Ends(2, succeeded));
}

TEST_F(Scheduler, LeavesNothingBehindAfterAnException) {
  Starter starter;
  const HeldSignals held;
  TaskSource tasks = source({"/bin/sleep 60", "none"}, &starter);
  pid_t first = -1;
  const auto start = tasks.start;
  tasks.start = [&](std::size_t index, int log, const Announce& announce, pid_t* process) {
    if (index > 0) throw std::bad_alloc();
    const int error = start(index, log, announce, process);
    first = *process;
    return error;
  };
  EXPECT_THROW(runQuietly(tasks, {2, patience, shortTime}, held), std::bad_alloc);
  int status = 0;
  EXPECT_EQ(waitpid(first, &status, 0), first);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

// A pipe that every started process keeps open for writing.
class LifeLine {
 public:
  LifeLine() {
    EXPECT_EQ(pipe(ends_), 0);
    fcntl(ends_[0], F_SETFD, FD_CLOEXEC);
  }
  ~LifeLine() {
    close(ends_[0]);
  }
  LifeLine(const LifeLine&) = delete;
  LifeLine& operator=(const LifeLine&) = delete;

  // Waits for all of them to end; false on time-out.
  bool endsIn(milliseconds time) {
    close(ends_[1]);
    pollfd end{ends_[0], POLLIN, 0};
    return poll(&end, 1, static_cast<int>(time.count())) == 1;
  }

 private:
  int ends_[2] = {-1, -1};
};

constexpr char stubbornChild[] =
    "(trap '' TERM; touch child; sleep 60; sleep 60) & await child 1; ";

TEST_F(Scheduler, KillsWhatIsLeftOfATaskThatWentOverTheTimeLimit) {
  LifeLine life;
  const std::string task = stubbornChild;
  expectOutcome(run({task + "sleep 60"}, {1, limit, never}), {timedOut});
  EXPECT_TRUE(life.endsIn(patience));
}

TEST_F(Scheduler, LeavesTheBackgroundProcessesOfATaskThatEndsByItself) {
  LifeLine life;
  const StopWatch watch;
  expectOutcome(
      run({"(trap '' TERM; await go 1; echo later) & exit 0", "exit 0"}, {1, limit, shortTime}),
      Ends(2, succeeded));
  EXPECT_LT(watch.time(), limit);
  folder_.write("go", "");
  EXPECT_TRUE(life.endsIn(patience));
  EXPECT_EQ(log(0), "later\n");
}

TEST_F(Scheduler, CountsAStoppedTaskAsRunning) {
  const StopWatch watch;
  expectOutcome(run({"kill -STOP $$; exit 0", "exit 0"}, {1, limit, never}), {timedOut, succeeded});
  EXPECT_GE(watch.time(), limit);
  EXPECT_LT(watch.time(), patience);
}

// The leader of a session cannot leave its group, to which signals for the task are sent.
TEST_F(Scheduler, HasTasksThatCannotLeaveTheirGroup) {
  const std::string script =
      folder_.write("script", "exit(setpgrp(0, getpgrp(getppid())) ? 0 : $!{EPERM} ? 7 : 8)");
  expectOutcome(runCommands({"/usr/bin/perl -MErrno " + script}, {1, {}, never}),
                {{Ending::failed, 7, ""}});
}

TEST_F(Scheduler, EndsWhenASignalInterruptsIt) {
  for (const int signal : signals) {
    unlink(folder_.file("ready").c_str());
    const Strings scripts = {
        "exit 3", "trap 'echo asked; exit 0' TERM; touch ready; sleep 60 & wait",
        "await ready 1; kill -" + std::to_string(signal) + " $PPID; sleep 60", "exit 0", "exit 0"};
    expectOutcome(run(scripts, {2, {}, never}),
                  {{Ending::failed, 3, ""}, interrupted, interrupted, notStarted, notStarted},
                  signal);
    EXPECT_EQ(log(1), "asked\n");
    EXPECT_EQ(access(logPath(3).c_str(), F_OK), -1);
  }
}

TEST_F(Scheduler, StartsNothingIfAlreadyInterrupted) {
  Starter starter;
  const HeldSignals held;
  raise(SIGTERM);
  expectOutcome(runQuietly(source(Strings(2, "/bin/true"), &starter), {1, {}, shortTime}, held),
                {notStarted, notStarted}, SIGTERM);
}

TEST_F(Scheduler, KillsWhatDoesNotEndInTheGracePeriodAfterAnInterrupt) {
  const StopWatch watch;
  expectOutcome(run({"trap '' TERM; kill -INT $PPID; sleep 60; sleep 60"}, {1, {}, shortTime}),
                {interrupted}, SIGINT);
  EXPECT_GE(watch.time(), shortTime);
  EXPECT_LT(watch.time(), patience);
}

TEST_F(Scheduler, KillsWhatIsLeftOfATaskThatWasInterrupted) {
  LifeLine life;
  const std::string task = stubbornChild;
  expectOutcome(run({task + "kill -INT $PPID; sleep 60"}, {1, {}, never}), {interrupted}, SIGINT);
  EXPECT_TRUE(life.endsIn(patience));
}

TEST_F(Scheduler, KillsAtOnceOnASecondSignal) {
  const StopWatch watch;
  const Strings scripts = {"trap '' TERM; touch ready; sleep 60; sleep 60",
                           "trap 'kill -HUP $PPID' TERM; await ready 1; kill -INT $PPID; while :; "
                           "do sleep 60 & wait; done"};
  expectOutcome(run(scripts, {2, {}, never}), {interrupted, interrupted}, SIGINT);
  EXPECT_LT(watch.time(), patience);
}

TEST_F(Scheduler, RemembersThatATaskWasOverTheTimeLimitBeforeTheInterrupt) {
  const Strings scripts = {"trap 'kill -INT $PPID; exit 0' TERM; sleep 60 & wait", "exit 0"};
  expectOutcome(run(scripts, {1, limit, never}), {timedOut, notStarted}, SIGINT);
}

TEST_F(Scheduler, IsNotInterruptedByASignalThatIsIgnored) {
  for (const int signal : signals) {
    std::signal(signal, SIG_IGN);
    expectOutcome(run({"kill -" + std::to_string(signal) + " $PPID", "exec cat /proc/self/status"}),
                  Ends(2, succeeded));
    EXPECT_EQ(signalsOf(log(1), "SigIgn") & setOf(signal), setOf(signal));
    EXPECT_EQ(std::signal(signal, SIG_DFL), SIG_IGN);
  }
}

// Such as the background processes of a shell that was replaced by this program.
TEST_F(Scheduler, IsNotConfusedByChildrenThatAreNotItsOwn) {
  if (fork() == 0) _exit(1);
  expectOutcome(run({"sleep 0.05", "exit 3"}), {succeeded, {Ending::failed, 3, ""}});
}

// Those that have not been tried come first.
TEST_F(Scheduler, TriesAgainWhatDidNotSucceed) {
  const Strings scripts = {
      "echo 0 >>order; exit 3", "echo 1 >>order; [ -e second ] || { touch second; kill -9 $$; }",
      "echo 2 >>order", "echo 3 >>order; [ -e fourth ] || { touch fourth; sleep 60; }"};
  expectOutcome(run(scripts, {1, limit, shortTime, 2}),
                {{Ending::failed, 3, ""}, succeeded, succeeded, succeeded});
  EXPECT_EQ(readFile(folder_.file("order")), "0\n1\n2\n3\n0\n1\n3\n0\n");
}

TEST_F(Scheduler, GivesEachTryALogAndARecordOfItsOwn) {
  Starter starter;
  Told told;
  TaskSource tasks = source({"/bin/true", "/bin/true"}, &starter);
  std::size_t logs = 0;
  tasks.openLog = [&](std::size_t) { return openLog(logs++); };
  tasks.ended = [&told](std::size_t index, TaskTry* attempt) {
    told.ended.emplace_back(index, *attempt);
    if (index == 0 && told.ended.size() == 1) attempt->end = {Ending::other, 0, "lacks a file"};
    return true;
  };
  const HeldSignals held;
  expectOutcome(runQuietly(tasks, {1, {}, shortTime, 5}, held), Ends(2, succeeded));
  EXPECT_EQ(logs, 3U);
  ASSERT_EQ(told.ended.size(), 3U);
  EXPECT_EQ(told.ended[1].first, 1U);
  EXPECT_EQ(told.ended[2].first, 0U);
  EXPECT_NE(told.ended[2].second.process, told.ended[0].second.process);
}

TEST_F(Scheduler, TriesNothingAgainAfterAnInterrupt) {
  expectOutcome(run({"kill -INT $PPID; sleep 60", "exit 0"}, {1, {}, shortTime, 5}),
                {interrupted, notStarted}, SIGINT);
}

TEST_F(Scheduler, StopsEarlyAfterFailuresIfItShould) {
  const Strings scripts = {"exit 1", "exit 2", "echo run", "exit 4"};
  const Ends stopped = {{Ending::failed, 1, ""}, {Ending::failed, 2, ""}, notStarted, notStarted};
  const Ends all = {
      {Ending::failed, 1, ""}, {Ending::failed, 2, ""}, succeeded, {Ending::failed, 4, ""}};
  const struct {
    HaltRule rule;
    std::int32_t retries;
    Ends ends;
    std::string reason;
  } rows[] = {
      {{2, false, "soon,fail=2"}, 0, stopped, "2 tasks failed (--halt soon,fail=2)"},
      {{2, true, "now,fail=2"}, 0, stopped, "2 tasks failed (--halt now,fail=2)"},
      // Only what has failed for good counts, and by then nothing is left.
      {{3, false, "soon,fail=3"}, 1, all, ""},
      {{4, false, "soon,fail=4"}, 0, all, ""},
  };
  for (const auto& row : rows) {
    const RunOutcome outcome = run(scripts, {1, patience, shortTime, row.retries, row.rule});
    expectOutcome(outcome, row.ends);
    EXPECT_EQ(outcome.stopReason, row.reason);
  }
}

TEST_F(Scheduler, EndsRunningTasksEarlyOnlyIfItShould) {
  const Strings scripts = {"await go 1; exit 1",
                           "trap 'echo asked; exit 0' TERM; touch go; sleep 60 & wait", "exit 0"};
  const struct {
    bool isNow;
    TaskEnd end;
    std::string log;
  } rows[] = {{true, interrupted, "asked\n"}, {false, {Ending::timedOut, 0, ""}, "asked\n"}};
  for (const auto& row : rows) {
    unlink(folder_.file("go").c_str());
    const RunOutcome outcome =
        run(scripts, {2, limit, never, 0, HaltRule{1, row.isNow, row.isNow ? "now" : "soon"}});
    expectOutcome(outcome, {{Ending::failed, 1, ""}, row.end, notStarted});
    EXPECT_EQ(outcome.signal, 0);
    EXPECT_EQ(log(1), row.log);
  }
}

TEST_F(Scheduler, IsQuickWithManyTasks) {
  constexpr std::size_t count = 300'000;
  const TaskSource tasks{count, [](std::size_t) { return -1; }, {}};
  const StopWatch watch;
  const HeldSignals held;
  const RunOutcome outcome = runQuietly(tasks, {4, {}, shortTime}, held);
  EXPECT_TRUE(std::all_of(outcome.ends.begin(), outcome.ends.end(),
                          [](const TaskEnd& end) { return end.ending == Ending::other; }));
  EXPECT_LT(watch.time(), patience);
}

// Starts a process that has ended at once, of which its tracer, another process, does not let
// anybody know. `*tracer` is that of the tracer.
pid_t startTraced(pid_t* tracer) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t process = fork();
  if (process == 0) {
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
    const pid_t own = getpid();
    const pid_t child = fork();
    if (child == 0) {
      const pid_t result = ptrace(PTRACE_SEIZE, own, 0, 0) == 0 ? getpid() : -1;
      _exit(write(ends[1], &result, sizeof result) == sizeof result && pause() == 0 ? 0 : 1);
    }
    // Once it is traced, the answer can be read, here or by the test.
    pollfd answer{ends[0], POLLIN, 0};
    static_cast<void>(poll(&answer, 1, 5000));
    _exit(0);
  }
  EXPECT_EQ(read(ends[0], tracer, sizeof *tracer), static_cast<ssize_t>(sizeof *tracer));
  close(ends[0]);
  close(ends[1]);
  return process;
}

TEST_F(Scheduler, GoesOnWithoutATaskThatDoesNotEnd) {
  pid_t process = 0;
  pid_t tracer = 0;
  const TaskSource tasks = {1, [this](std::size_t index) { return openLog(index); },
                            [&](std::size_t, int, const Announce&, pid_t* started) {
                              *started = process = startTraced(&tracer);
                              return 0;
                            }};
  const HeldSignals held;
  const RunOutcome outcome = runQuietly(tasks, {1, shortTime, shortTime}, held);
  expectOutcome(outcome, {{Ending::other, 0, "did not end after SIGKILL"}});
  ASSERT_GT(tracer, 0);
  kill(tracer, SIGKILL);
  EXPECT_EQ(waitpid(process, nullptr, 0), process);
}

TEST_F(Scheduler, RunsAThousandTasks) {
  Starter starter;
  TaskSource tasks = source(Strings(1000, "/bin/true"), &starter);
  tasks.openLog = [this](std::size_t) { return openLog(0); };
  const HeldSignals held;
  expectOutcome(runQuietly(tasks, {50, std::chrono::minutes(1), shortTime}, held),
                Ends(1000, succeeded));
}

}  // namespace
}  // namespace runlet_tool
