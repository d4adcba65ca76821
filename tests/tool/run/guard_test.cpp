// The tasks of a run that is killed.

#include "tool/batch/guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "adapter_test.h"
#include "fault_test.h"
#include "programs.h"
#include "tool/batch/starter.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

// Every process started here has the pipe `life` open for writing.
class KilledRun : public AdapterTest {
 protected:
  KilledRun() {
    EXPECT_EQ(mkfifo(folder_.file("life").c_str(), 0600), 0);
    life_ = open(folder_.file("life").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  ~KilledRun() override {
    close(life_);
  }

  // A run of shell scripts, all at a time, which call `ready`, and whose clock is six times as
  // fast.
  ProcessOptions options(const Strings& scripts, const std::string& fault = "quick-clock") {
    Job job;
    job.arguments = "/bin/sh -c \"%tp1\"";
    job.tasks = scripts;
    job.set("TaskTimeout", "60");
    write(job);
    ProcessOptions started = tool({"run", jobFile_, "--jobs", std::to_string(scripts.size())});
    started.environment.insert(started.environment.end(),
                               {{"LD_PRELOAD", faultsPath},
                                {"RUNLET_FAULT", fault},
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    started.prepare = [this] { openAs(7, folder_.file("life"), O_WRONLY); };
    return started;
  }

  bool exists(const std::string& name) const {
    return access(folder_.file(name).c_str(), F_OK) == 0;
  }

  // Kills the run once those files exist, and waits until its guard has ended, too.
  void killWhenThereAre(const Strings& files, const ProcessOptions& started) {
    Process process(started);
    for (const std::string& file : files) {
      ASSERT_TRUE(eventually([&] { return exists(file); })) << file;
    }
    ASSERT_EQ(kill(process.pid(), SIGKILL), 0);
    EXPECT_EQ(describeStatus(process.finish().waitStatus), "signal 9");
  }

  // Whether all that was started ends.
  bool isAllGone() const {
    char byte = 0;
    return eventually([&] { return read(life_, &byte, 1) == 0; });
  }

 private:
  int life_ = -1;
};

// A task that ends when asked to, one that does not, one that is stopped, and one whose child does
// not end when asked to. A sleep in the foreground of the first one might begin after the signal.
const Strings longTasks = {
    "trap ': >asked; exit 0' TERM; sleep 60 & touch a; wait",
    "trap '' TERM; touch b; while :; do sleep 60; done",
    "touch c; kill -STOP $$; sleep 60",
    "(trap '' TERM; touch d; sleep 60; sleep 60) & wait",
};

TEST_F(KilledRun, LeavesNoTaskBehind) {
  killWhenThereAre({"a", "b", "c", "d"}, options(longTasks));
  EXPECT_TRUE(isAllGone());
  EXPECT_TRUE(exists("asked"));
}

TEST_F(KilledRun, LeavesNoTaskBehindOnASystemWithoutPidfds) {
  killWhenThereAre({"a", "b", "d"}, options({longTasks[0], longTasks[1], longTasks[3]},
                                            "quick-clock-without-pidfds"));
  EXPECT_TRUE(isAllGone());
  EXPECT_TRUE(exists("asked"));
}

// As by a shell or a batch system that kills the group.
TEST_F(KilledRun, LeavesNoTaskBehindIfItsGroupIsKilled) {
  Process process(options({longTasks[0], longTasks[1]}));
  for (const char* file : {"a", "b"}) ASSERT_TRUE(eventually([&] { return exists(file); })) << file;
  ASSERT_EQ(getpgid(process.pid()), process.pid());
  ASSERT_EQ(kill(-process.pid(), SIGKILL), 0);
  EXPECT_EQ(describeStatus(process.finish().waitStatus), "signal 9");
  EXPECT_TRUE(isAllGone());
  EXPECT_TRUE(exists("asked"));
}

// They are left alone, however the run ends.
TEST_F(KilledRun, DoesNotEndTheBackgroundProcessesOfTasksThatHaveEnded) {
  const std::string later = "(touch a; until [ -e go ]; do sleep 0.01; done; touch later) & exit 0";
  killWhenThereAre({"a", "b"}, options({later, "wait; touch b; sleep 60"}));
  folder_.write("go", "");
  EXPECT_TRUE(isAllGone());
  EXPECT_TRUE(exists("later"));
}

TEST_F(KilledRun, IsNotARunThatEndsByItself) {
  const Strings tasks = {"touch a; until [ -e go ]; do sleep 0.01; done; touch later",
                         "until [ -e a ]; do sleep 0.01; done"};
  const ProcessResult result = runProcess(options(tasks, "no-children"));
  EXPECT_NE(result.error.find("running tasks are left running"), std::string::npos);
  folder_.write("go", "");
  EXPECT_TRUE(isAllGone());
  EXPECT_TRUE(exists("later"));
}

// A process in a session of its own that waits to be killed.
pid_t sleeper(int* descriptor) {
  int leads[2];
  EXPECT_EQ(pipe(leads), 0);
  const pid_t process = fork();
  if (process == 0) {
    setsid();
    std::signal(SIGTERM, SIG_IGN);
    close(leads[0]);
    close(leads[1]);
    while (true) pause();
  }
  close(leads[1]);
  char byte = 0;
  EXPECT_EQ(read(leads[0], &byte, 1), 0);
  close(leads[0]);
  *descriptor = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  return process;
}

std::string endOf(pid_t process) {
  int status = 0;
  return waitpid(process, &status, 0) == process ? describeStatus(status) : "none";
}

TEST(TaskGuard, KillsATaskAfterTheGracePeriod) {
  int descriptor = -1;
  const pid_t task = sleeper(&descriptor);
  runlet_tool::TaskGuard guard;
  guard.add(task, descriptor);
  guard.endAll(std::chrono::milliseconds(50));
  EXPECT_EQ(endOf(task), "signal 9");
}

// However many tasks have been run, few descriptors are open.
TEST(TaskGuard, ForgetsTasksThatHaveEnded) {
  for (const bool hasDescriptor : {true, false}) {
    runlet_tool::TaskGuard guard;
    for (int i = 0; i < 200; ++i) {
      EXPECT_TRUE(guard.hasRoom());
      int descriptor = -1;
      const pid_t task = sleeper(&descriptor);
      kill(task, SIGKILL);
      EXPECT_EQ(endOf(task), "signal 9");
      EXPECT_LT(descriptor, 64);
      if (!hasDescriptor) close(descriptor);
      guard.add(task, hasDescriptor ? descriptor : -1);
    }
  }
}

TEST(TaskGuard, TakesAtMostHalfOfTheDescriptors) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{40, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  {
    runlet_tool::TaskGuard guard;
    for (int i = 0; i < 20; ++i) {
      EXPECT_TRUE(guard.hasRoom()) << i;
      guard.add(getpid(), -1);
    }
    EXPECT_FALSE(guard.hasRoom());
  }
  setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
}  // namespace runlet_test
