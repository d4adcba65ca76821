// Process faults: failing forks and waits, children that end in every way, and signals during the
// wait.

#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "fault_test.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

// A user without a name or other processes, so that the limit counts only those of the test.
uid_t unusedUser() {
  uid_t uid = 20000 + static_cast<uid_t>(getpid()) % 40000;
  const auto isUsed = [&] {
    if (getpwuid(uid) != nullptr) return true;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      struct stat status {};
      if (stat(entry.path().c_str(), &status) == 0 && status.st_uid == uid) return true;
    }
    return false;
  };
  while (isUsed()) ++uid;
  return uid;
}

class ProcessLimit : public FaultTest {
 protected:
  void SetUp() override {
    FaultTest::SetUp();
    REQUIRE_ROOT();
    ASSERT_EQ(chmod(folder().c_str(), 0777), 0);
  }

  // The tasks 1 to `count` of a job, run by a user who may have `limit` processes, including the
  // adapter.
  ProcessOptions limited(const std::string& command, int count, rlim_t limit) {
    Job job;
    job.arguments = command;
    job.tasks.assign(static_cast<std::size_t>(count), "t");
    job.set("uid", std::to_string(user_)).set("gid", std::to_string(otherId));
    write(job);
    ProcessOptions options = unprivileged(newTask(1, count));
    // A leak check at exit would need another process.
    options.environment.emplace_back("ASAN_OPTIONS", "detect_leaks=0:verify_asan_link_order=0");
    options.prepare = [user = user_, limit] {
      const rlimit processes{limit, limit};
      if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(user) != 0 ||
          setrlimit(RLIMIT_NPROC, &processes) != 0) {
        _exit(97);
      }
    };
    return options;
  }

  // Sets the limit of a running process. Done by a process of the same user, since root may lack
  // the right.
  bool setLimit(pid_t pid, rlim_t limit) const {
    const pid_t setter = fork();
    if (setter == 0) {
      const rlimit processes{limit, limit};
      const bool done = setgid(otherId) == 0 && setuid(user_) == 0 &&
                        prlimit(pid, RLIMIT_NPROC, &processes, nullptr) == 0;
      _exit(done ? 0 : 1);
    }
    int status = -1;
    return waitpid(setter, &status, 0) == setter && status == 0;
  }

  const uid_t user_ = unusedUser();
};

TEST_F(ProcessLimit, OfTheAdapterAloneStartsNothing) {
  expectResult(runProcess(limited("/bin/mkdir made%tn", 3, 1)),
               calling("/bin/mkdir made1", folder()), cannotFork("/bin/mkdir made1"), "exit 255");
  EXPECT_EQ(files(), (Strings{"adapter", "job.xml"}));
}

// A zombie still counts: the second task would not start.
TEST_F(ProcessLimit, OfOneChildIsEnoughForAnyNumberOfTasks) {
  std::string lines;
  std::string error;
  for (int number = 1; number <= 20; ++number) {
    lines += calling("/bin/true " + std::to_string(number), folder()) + processStarted;
    error += cannotExecute("./missing " + std::to_string(number), "No such file or directory") +
             exitCodeLine(-127);
  }
  expectResult(runProcess(limited("/bin/true %tn", 20, 2)), lines, "", "exit 0");
  // Nor do tasks that cannot be executed leave zombies.
  const ProcessResult result = runProcess(limited("./missing %tn", 20, 2));
  EXPECT_EQ(result.error, error);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

// Earlier results are kept, and no task after the one without a process is tried.
TEST_F(ProcessLimit, ReachedDuringARangeEndsTheRequest) {
  script("script", until("go") + "; mkdir made$1; exit 3");
  Process process(limited("./script %tn", 3, 10));
  ASSERT_NE(announcedChild(&process), -1);
  ASSERT_TRUE(setLimit(process.pid(), 1));
  folder_.write("go", "");
  expectResult(process.finish(),
               calling("./script 1", folder()) + processStarted + calling("./script 2", folder()),
               exitCodeLine(3) + cannotFork("./script 2"), "exit 255");
  EXPECT_EQ(files(), (Strings{"adapter", "go", "job.xml", "made1", "script"}));
}

// If the starter ignores SIGCHLD, the system discards exit statuses. The wait still lasts until the
// children have ended.
class IgnoredChildren : public FaultTest {
 protected:
  ProcessResult runIgnoring(const Job& job, const Strings& arguments) {
    write(job);
    ProcessOptions options = adapter(arguments);
    options.prepare = [] { std::signal(SIGCHLD, SIG_IGN); };
    return runProcess(options);
  }

  const std::string waitError_ = "Wait Error:No child processes\n";
};

TEST_F(IgnoredChildren, AreWaitedForInSequence) {
  script("script", "sleep 0.05; echo $1 >>ended; exit 3");
  Job job;
  job.arguments = "./script %tn";
  job.tasks.assign(3, "t");
  std::string lines;
  for (const char* number : {"1", "2", "3"}) {
    lines += calling(std::string("./script ") + number, folder()) + processStarted;
  }
  expectResult(runIgnoring(job, newTask(1, 3)), lines, waitError_ + waitError_ + waitError_,
               "exit 0");
  EXPECT_EQ(readFile(folder_.file("ended")), "1\n2\n3\n");
}

TEST_F(IgnoredChildren, PreventNeitherTheChmodNorTheReport) {
  folder_.write("script", "#!/bin/sh\nexit 3\n", 0600);
  Job job;
  job.arguments = "script x";
  Strings arguments = newTask();
  arguments.insert(arguments.end(), {"-a", folder() + "/"});
  const std::string command = folder_.file("script x");
  expectResult(runIgnoring(job, arguments), calling(command, folder()) + processStarted, waitError_,
               "exit 0");
  EXPECT_EQ(modeOf(folder_.file("script")), 0755);

  job.arguments = "./missing";
  const ProcessResult result = runIgnoring(job, newTask());
  EXPECT_EQ(result.error, cannotExecute("./missing", "No such file or directory") + waitError_);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

using EndOfTheChild = FaultTest;

// All signals except those that are ignored, stop a process or belong to the C library.
TEST_F(EndOfTheChild, ByAnySignalThatKillsIsNotReported) {
  script("script",
         "case $1 in 17|18|19|20|21|22|23|28|32|33) exit 9;; esac\n"
         "kill -$1 $$\n"
         "echo lived; exit 8");
  Job job;
  job.arguments = "./script %tn";
  job.tasks.assign(64, "t");
  write(job);
  std::string lines;
  for (int signal = 1; signal <= 64; ++signal) {
    lines += calling("./script " + std::to_string(signal), folder()) + processStarted;
  }
  std::string error;
  for (int i = 0; i < 10; ++i) error += exitCodeLine(9);
  ProcessOptions options = adapter(newTask(1, 64));
  options.prepare = [] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
  };
  expectResult(runProcess(options), lines, error, "exit 0");
  EXPECT_EQ(files(), (Strings{"job.xml", "script"}));
}

// Whether the system writes core files to the folder of the process.
bool writesCoresInTheRunFolder() {
  const std::string pattern = readFile("/proc/sys/kernel/core_pattern");
  rlimit limit{};
  getrlimit(RLIMIT_CORE, &limit);
  return pattern.find_first_of("|/") == std::string::npos && limit.rlim_max == RLIM_INFINITY;
}

// The core flag of the wait status is not part of the exit code.
TEST_F(EndOfTheChild, WithACoreIsNotReported) {
  const bool core = writesCoresInTheRunFolder();
  const std::string work = folder_.makeFolder("work");
  Job job;
  job.arguments = "/bin/sh -c \"kill -SEGV $$\"";
  job.set("WorkingFolder", work);
  write(job);
  ProcessOptions options = adapter(newTask());
  options.environment.emplace_back("ASAN_OPTIONS", "disable_coredump=0");
  options.prepare = [core] {
    const rlim_t size = core ? RLIM_INFINITY : 0;
    const rlimit limit{size, size};
    setrlimit(RLIMIT_CORE, &limit);
  };
  expectResult(runProcess(options), calling(job.arguments, work) + processStarted, "", "exit 0");
  EXPECT_EQ(std::filesystem::is_empty(work), !core);
}

TEST_F(EndOfTheChild, IsWaitedForAcrossAStop) {
  script("script", until("go") + "; exit 4");
  Job job;
  job.arguments = "./script x";
  write(job);
  Process process(adapter(newTask()));
  const pid_t child = announcedChild(&process);
  ASSERT_NE(child, -1);
  EXPECT_EQ(parentOf(child), process.pid());
  for (int i = 0; i < 3; ++i) {
    kill(child, SIGSTOP);
    EXPECT_TRUE(eventually([&] { return stateOf(child) == 'T'; }));
    EXPECT_TRUE(eventually([&] { return stateOf(process.pid()) == 'S'; }));
    kill(child, SIGCONT);
    EXPECT_TRUE(eventually([&] { return stateOf(child) == 'S'; }));
  }
  folder_.write("go", "");
  expectResult(process.finish(), calling("./script x", folder()) + processStarted, exitCodeLine(4),
               "exit 0");
}

// The server sees the end of the adapter although not the end of its output.
TEST_F(EndOfTheChild, IsTheEndEvenIfAProcessItLeftHoldsTheOutput) {
  script("script", "(" + until("go") + "; echo late) & echo $! >left; exit 5");
  Job job;
  job.arguments = "./script x";
  write(job);
  Process process(adapter(newTask()));
  process.awaitEnd();
  EXPECT_EQ(stateOf(process.pid()), 'Z');
  const pid_t left = std::atoi(readFile(folder_.file("left")).c_str());
  EXPECT_EQ(parentOf(left), getpid());
  folder_.write("go", "");
  expectResult(process.finish(), calling("./script x", folder()) + processStarted + "late\n",
               exitCodeLine(5), "exit 0");
  EXPECT_EQ(endOfOrphan(left), "exit 0");
}

// Two tasks that each wait for the test, leave a file and exit with code 7.
class SignalDuringTheWait : public FaultTest {
 protected:
  void SetUp() override {
    FaultTest::SetUp();
    script("script", until("go") + "; mkdir made$1; exit 7");
    Job job;
    job.arguments = "./script %tn";
    job.tasks.assign(2, "t");
    write(job);
    options_ = adapter(newTask(1, 2));
  }

  // Reads up to the announcement of the first child, and returns the child's id once it runs and
  // the adapter waits for it; -1 otherwise.
  static pid_t childWaitedFor(Process* process) {
    const pid_t child = announcedChild(process);
    if (child == -1) return -1;
    const bool both =
        eventually([&] { return stateOf(process->pid()) == 'S' && stateOf(child) == 'S'; });
    return both ? child : -1;
  }

  std::string line(const char* number) const {
    return calling(std::string("./script ") + number, folder()) + processStarted;
  }

  // Asserts that both tasks run to their end as if there had been no signal.
  void expectUndisturbed(Process* process) {
    folder_.write("go", "");
    expectResult(process->finish(), line("1") + line("2"), exitCodeLine(7) + exitCodeLine(7),
                 "exit 0");
    EXPECT_EQ(files(), (Strings{"go", "job.xml", "made1", "made2", "script"}));
  }

  ProcessOptions options_;
};

// The adapter has no handlers. It ends at once, the running task continues without it, and no
// further one is started.
TEST_F(SignalDuringTheWait, EndsTheAdapterAndLeavesTheTaskToItself) {
  options_.prepare = [] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
  };
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGKILL, SIGUSR1, SIGALRM, SIGTERM}) {
    SCOPED_TRACE(signal);
    Process process(options_);
    const pid_t child = childWaitedFor(&process);
    ASSERT_NE(child, -1);
    kill(process.pid(), signal);
    process.awaitEnd();
    EXPECT_EQ(stateOf(process.pid()), 'Z');
    EXPECT_EQ(parentOf(child), getpid());
    folder_.write("go", "");
    expectResult(process.finish(), line("1"), "", "signal " + std::to_string(signal));
    EXPECT_EQ(endOfOrphan(child), "exit 7");
    EXPECT_EQ(files(), (Strings{"go", "job.xml", "made1", "script"}));
    std::filesystem::remove(folder_.file("go"));
    std::filesystem::remove(folder_.file("made1"));
  }
}

// As from a terminal, or from a server that ends everything it started.
TEST_F(SignalDuringTheWait, ToTheGroupEndsTheTaskToo) {
  Job job;
  job.arguments = "/bin/sleep 30";
  job.tasks.assign(2, "t");
  write(job);
  for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
    SCOPED_TRACE(signal);
    Process process(options_);
    const pid_t child = childWaitedFor(&process);
    ASSERT_NE(child, -1);
    killpg(process.pid(), signal);
    expectResult(process.finish(), calling("/bin/sleep 30", folder()) + processStarted, "",
                 "signal " + std::to_string(signal));
    // If the task dies first, the adapter's wait may still see it.
    const std::string end = endOfOrphan(child);
    EXPECT_TRUE(end == "signal " + std::to_string(signal) || end == "no such process") << end;
  }
}

// A stopped wait continues; a child that ended meanwhile is not lost.
TEST_F(SignalDuringTheWait, ThatStopsTheAdapterOnlyDelaysIt) {
  Process process(options_);
  const pid_t child = childWaitedFor(&process);
  ASSERT_NE(child, -1);
  for (const int signal : {SIGSTOP, SIGTSTP, SIGTTIN}) {
    kill(process.pid(), signal);
    // Terminal stop signals do not stop members of an orphaned process group.
    if (signal == SIGSTOP) {
      EXPECT_TRUE(eventually([&] { return stateOf(process.pid()) == 'T'; }));
    }
    kill(process.pid(), SIGCONT);
    EXPECT_TRUE(eventually([&] { return stateOf(process.pid()) == 'S'; }));
  }
  kill(process.pid(), SIGSTOP);
  EXPECT_TRUE(eventually([&] { return stateOf(process.pid()) == 'T'; }));
  folder_.write("go", "");
  EXPECT_TRUE(eventually([&] { return stateOf(child) == 'Z'; }));
  EXPECT_EQ(stateOf(process.pid()), 'T');
  kill(process.pid(), SIGCONT);
  expectUndisturbed(&process);
}

TEST_F(SignalDuringTheWait, ThatTheStarterIgnoresOrBlocksDoesNothing) {
  const std::vector<int> signals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGALRM};
  const std::function<void()> prepares[] = {
      [&] {
        for (const int signal : signals) std::signal(signal, SIG_IGN);
      },
      [&] {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : signals) sigaddset(&set, signal);
        sigprocmask(SIG_BLOCK, &set, nullptr);
      },
  };
  for (const auto& prepare : prepares) {
    options_.prepare = prepare;
    Process process(options_);
    ASSERT_NE(childWaitedFor(&process), -1);
    for (const int signal : signals) kill(process.pid(), signal);
    expectUndisturbed(&process);
    for (const char* name : {"go", "made1", "made2"}) std::filesystem::remove(folder_.file(name));
  }
}

// Signals whose default is to be ignored do not interrupt the wait either.
TEST_F(SignalDuringTheWait, WithoutAnEffectInterruptsNothing) {
  Process process(options_);
  ASSERT_NE(childWaitedFor(&process), -1);
  for (const int signal : {SIGCHLD, SIGCONT, SIGURG, SIGWINCH}) kill(process.pid(), signal);
  expectUndisturbed(&process);
}

class SignalState : public FaultTest {
 protected:
  // The line `name` of a task's /proc/self/status, in a request for which the chmod of an
  // application path has been run as well.
  std::string lineOfTask(const std::string& name, const std::function<void()>& prepare) {
    Job job;
    job.arguments = "grep ^" + name + " /proc/self/status";
    write(job);
    Strings arguments = newTask();
    const std::string bin = folder() + "/";
    std::filesystem::copy_file("/bin/grep", bin + "grep",
                               std::filesystem::copy_options::overwrite_existing);
    arguments.insert(arguments.end(), {"-a", bin});
    ProcessOptions options = adapter(arguments);
    options.prepare = prepare;
    const std::string lines =
        calling(bin + job.arguments, folder()) + processStarted + name + ":\t";
    const ProcessResult result = runProcess(options);
    const std::string output = adapterLinesFirst(withoutPids(result.output));
    EXPECT_EQ(output.substr(0, lines.size()), lines);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    return output.substr(std::min(lines.size(), output.size()));
  }
};

// One bit per signal, the first signal lowest. For chmod the C library ignores SIGINT and SIGQUIT
// and blocks SIGCHLD, and restores them.
TEST_F(SignalState, OfTheTaskIsTheStarters) {
  EXPECT_EQ(lineOfTask("SigIgn", [] {}), "0000000000000000\n");
  EXPECT_EQ(lineOfTask("SigBlk", [] {}), "0000000000000000\n");
  EXPECT_EQ(lineOfTask("SigIgn",
                       [] {
                         for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGTSTP}) {
                           std::signal(signal, SIG_IGN);
                         }
                       }),
            "0000000000085003\n");
  EXPECT_EQ(lineOfTask("SigBlk",
                       [] {
                         sigset_t set;
                         sigemptyset(&set);
                         for (const int signal : {SIGQUIT, SIGUSR1, SIGTERM, SIGCHLD}) {
                           sigaddset(&set, signal);
                         }
                         sigprocmask(SIG_BLOCK, &set, nullptr);
                       }),
            "0000000000014204\n");
}

// A blocked SIGCHLD does not affect the wait.
TEST_F(SignalState, WithSigchldBlockedDoesNotAffectTheWait) {
  Job job;
  job.arguments = "/bin/sh -c \"exit 6\"";
  write(job);
  ProcessOptions options = adapter(newTask());
  options.prepare = [] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    sigprocmask(SIG_BLOCK, &set, nullptr);
  };
  expectResult(runProcess(options), calling(job.arguments, folder()) + processStarted,
               exitCodeLine(6), "exit 0");
}

class ShortOfMemory : public FaultTest {
 protected:
  // The adapter with an address space of 48 MiB. A sanitizer needs far more.
  ProcessResult runShort(const Strings& arguments) const {
    ProcessOptions options = adapter(arguments);
    options.program = plainAdapterPath;
    options.prepare = [] {
      const rlimit space{48U << 20U, 48U << 20U};
      setrlimit(RLIMIT_AS, &space);
    };
    return runProcess(options);
  }
};

// The exception of the C++ library is not caught; no task has been started by then.
TEST_F(ShortOfMemory, EndsTheLoadOfABigJob) {
  Job job;
  job.arguments = "/bin/mkdir made%tn";
  job.tasks.assign(200000, "t");
  write(job);
  const std::string error = terminateText("std::bad_alloc", "std::bad_alloc");
  expectResult(runShort(newTask()), "", error, "signal 6");
  expectResult(runShort({"-o", "PingTask", "-j", jobFile_}), "", error, "signal 6");
  EXPECT_EQ(files(), Strings{"job.xml"});

  // It is the job that is too big, not the adapter.
  job.tasks.assign(200, "t");
  write(job);
  expectResult(runShort(newTask()), calling("/bin/mkdir made1", folder()) + processStarted, "",
               "exit 0");
}

using LongRange = FaultTest;

// While the last of many tasks runs, there is one child and no descriptor of any other.
TEST_F(LongRange, LeavesNoZombieAndNoDescriptorBehind) {
  script("script", "[ $1 -lt 300 ] || " + until("go"));
  Job job;
  job.arguments = "./script %tn";
  job.tasks.assign(300, "t");
  write(job);
  Process process(adapter(newTask(1, 300)));
  ASSERT_TRUE(process.readUntil(calling("./script 300", folder())));
  const pid_t child = announcedChild(&process);
  EXPECT_EQ(childrenOf(process.pid()), std::vector<pid_t>{child});
  Strings descriptors;
  const std::string table = "/proc/" + std::to_string(process.pid()) + "/fd";
  for (const auto& entry : std::filesystem::directory_iterator(table)) {
    descriptors.push_back(entry.path().filename());
  }
  std::sort(descriptors.begin(), descriptors.end());
  EXPECT_EQ(descriptors, (Strings{"0", "1", "2"}));
  folder_.write("go", "");
  std::string lines;
  for (int number = 1; number <= 300; ++number) {
    lines += calling("./script " + std::to_string(number), folder()) + processStarted;
  }
  expectResult(process.finish(), lines, "", "exit 0");
}

}  // namespace
}  // namespace runlet_test
