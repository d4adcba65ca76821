// Running programs to completion.

#include "tool/system/subprocess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>

namespace runlet_tool {
namespace {

ProgramResult shell(const std::string& command, std::string_view input = "") {
  return runSubprocess({"sh", "-c", command, "name", "a b", "", "$(x)\n\\"}, input,
                       {"PATH=/usr/bin:/bin", "KEY=a value"});
}

TEST(Subprocess, GetsItsArgumentsItsInputAndItsEnvironment) {
  const ProgramResult result =
      shell("printf '%s|' \"$#\" \"$@\" \"$KEY\" \"$HOME\"; cat /dev/stdin; cat", "text\n");
  EXPECT_EQ(result.startError, 0);
  EXPECT_EQ(result.waitStatus, 0);
  EXPECT_EQ(result.output, "3|a b||$(x)\n\\|a value||text\ntext\n");
  EXPECT_EQ(result.error, "");
}

TEST(Subprocess, MayLeaveInputUnreadAndWriteMuchToBothOutputs) {
  const std::string much(1 << 20, 'x');
  const ProgramResult result =
      shell("head -c 1048576 /dev/stdin; head -c 1048576 /dev/stdin >&2; exit 3", much + "rest");
  EXPECT_EQ(result.output, much);
  EXPECT_EQ(result.error, much);
  EXPECT_EQ(WEXITSTATUS(result.waitStatus), 3);
}

TEST(Subprocess, ReportsItsEnd) {
  EXPECT_EQ(WTERMSIG(shell("kill -9 $$").waitStatus), 9);
  EXPECT_EQ(WEXITSTATUS(shell("exit 255").waitStatus), 255);
}

// Asserts `holds` in a separate process, since it changes the environment, open descriptors and
// their limit.
void expectInChild(const std::function<bool()>& holds) {
  const pid_t pid = fork();
  if (pid == 0) _exit(holds() ? 0 : 1);
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(Subprocess, IsSearchedForAlongThePathAndMayBeMissing) {
  expectInChild([] {
    setenv("PATH", "/nowhere:/usr/bin", 1);
    return runSubprocess({"true"}, "", {}).startError == 0 &&
           runSubprocess({"no-such-program"}, "", {}).startError == ENOENT &&
           runSubprocess({""}, "", {}).startError == ENOENT &&
           runSubprocess({"/"}, "", {}).startError == EACCES;
  });
}

TEST(Subprocess, HasNoOtherDescriptor) {
  expectInChild([] {
    close_range(3, ~0U, 0);
    return shell("ls /proc/$$/fd").output == "0\n1\n2\n";
  });
}

TEST(Subprocess, ReportsItsEndEvenIfTheEndsOfProcessesAreIgnored) {
  expectInChild([] {
    std::signal(SIGCHLD, SIG_IGN);
    const ProgramResult result = shell("sed -n 's/^SigIgn://p' /proc/self/status; exit 3");
    const unsigned long long ignored = std::strtoull(result.output.c_str(), nullptr, 16);
    return (ignored >> (SIGCHLD - 1) & 1) == 0 && WEXITSTATUS(result.waitStatus) == 3 &&
           std::signal(SIGCHLD, SIG_DFL) == SIG_IGN;
  });
}

TEST(Subprocess, MayBeRunByAProcessWithoutStandardStreams) {
  expectInChild([] {
    for (const int descriptor : {0, 1, 2}) close(descriptor);
    const ProgramResult result = shell("cat; echo error >&2", "text\n");
    return result.output == "text\n" && result.error == "error\n" && result.waitStatus == 0;
  });
}

// For every number of missing descriptors: if there are enough to start, there are enough to read
// the output.
TEST(Subprocess, IsNotStartedIfItsOutputCouldNotBeRead) {
  expectInChild([] {
    close_range(3, ~0U, 0);
    int started = 0;
    for (rlim_t most = 3; most <= 16; ++most) {
      const rlimit limit = {most, 32};
      setrlimit(RLIMIT_NOFILE, &limit);
      const ProgramResult result = shell("echo answer");
      if (result.startError == EMFILE && started == 0) continue;
      const bool isWhole = result.startError == 0 && result.answerError == 0 &&
                           result.waitStatus == 0 && result.output == "answer\n";
      if (!isWhole) return false;
      ++started;
    }
    return started > 0;
  });
}

TEST(Subprocess, IsNotStartedIfThereAreNoDescriptorsLeft) {
  expectInChild([] {
    bool isAlwaysReported = true;
    for (rlim_t most = 3; most <= 8; ++most) {
      close_range(3, ~0U, 0);
      const rlimit limit = {most, most};
      setrlimit(RLIMIT_NOFILE, &limit);
      isAlwaysReported = isAlwaysReported && shell("true").startError == EMFILE;
    }
    return isAlwaysReported;
  });
}

}  // namespace
}  // namespace runlet_tool
