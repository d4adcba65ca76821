// Signals while arrays are submitted or waited for.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tool/system/signals.h"
#include "tool/system/subprocess.h"

namespace runlet_tool {
namespace {

using testing::ExitedWithCode;
using testing::KilledBySignal;

constexpr int stopSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

void setDispositions(sighandler_t disposition) {
  for (const int signal : stopSignals) std::signal(signal, disposition);
}

TEST(SignalHold, DelaysASignalUntilItIsDestroyed) {
  for (const int signal : stopSignals) {
    const auto raiseWhileHeld = [=] {
      setDispositions(SIG_DFL);
      const SignalHold hold;
      if (hold.isInterrupted()) _exit(1);
      raise(signal);
      if (!hold.isInterrupted()) _exit(2);
    };
    EXPECT_EXIT(raiseWhileHeld(), KilledBySignal(signal), "");
  }
}

TEST(SignalHold, MayBeReleasedEarlier) {
  const auto release = [] {
    setDispositions(SIG_DFL);
    SignalHold hold;
    raise(SIGINT);
    hold.release();
    _exit(1);
  };
  EXPECT_EXIT(release(), KilledBySignal(SIGINT), "");
}

TEST(SignalHold, LeavesIgnoredSignalsAlone) {
  const auto raiseWhileHeld = [] {
    setDispositions(SIG_IGN);
    {
      const SignalHold hold;
      for (const int signal : stopSignals) raise(signal);
      if (hold.isInterrupted()) _exit(1);
    }
    _exit(0);
  };
  EXPECT_EXIT(raiseWhileHeld(), ExitedWithCode(0), "");
}

// Ctrl-C also reaches the programs that are run.
TEST(SignalHold, AppliesToProgramsToo) {
  const auto run = [] {
    setDispositions(SIG_DFL);
    const SignalHold hold;
    const ProgramResult result = runSubprocess({"cat", "/proc/self/status"}, "", {});
    _exit(result.output.find("\nSigBlk:\t0000000000004007\n") == std::string::npos ? 1 : 0);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "");
}

TEST(Farewell, IsWrittenBeforeTheProcessDies) {
  for (const int signal : stopSignals) {
    const auto raiseThen = [=] {
      setDispositions(SIG_DFL);
      const Farewell farewell("going\n");
      raise(signal);
      _exit(1);
    };
    EXPECT_EXIT(raiseThen(), KilledBySignal(signal), "^going\n$");
  }
}

TEST(Farewell, IsNotWrittenForIgnoredSignals) {
  const auto raiseAll = [] {
    setDispositions(SIG_IGN);
    {
      const Farewell farewell("going\n");
      for (const int signal : stopSignals) raise(signal);
    }
    for (const int signal : stopSignals) raise(signal);
    _exit(0);
  };
  EXPECT_EXIT(raiseAll(), ExitedWithCode(0), "^$");
}

TEST(Farewell, IsNotWrittenAfterItsLifetime) {
  const auto raiseAfterwards = [] {
    setDispositions(SIG_DFL);
    { const Farewell farewell("going\n"); }
    raise(SIGTERM);
  };
  EXPECT_EXIT(raiseAfterwards(), KilledBySignal(SIGTERM), "^$");
}

}  // namespace
}  // namespace runlet_tool
