// The built adapter under test.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "job.h"
#include "process.h"
#include "programs.h"
#include "temp_folder.h"

namespace runlet_test {

// Id of the user and group that serve as "another user" if the tests run as root.
inline constexpr unsigned otherId = 65534;

// Skips the test if it does not run as root; if RUNLET_FORBID_SKIPS is set, fails it.
#define REQUIRE_ROOT()                                                      \
  if (geteuid() != 0) {                                                     \
    if (std::getenv("RUNLET_FORBID_SKIPS") != nullptr) FAIL() << "no root"; \
    GTEST_SKIP() << "needs root";                                           \
  }                                                                         \
  static_cast<void>(0)

// The report of the probe: for every kind of line, the lines of that kind.
using Report = std::map<std::string, std::vector<std::string>>;

// A job file in its own folder, and runs of the adapter on it.
class AdapterTest : public testing::Test {
 protected:
  // The adapter's arguments for the tasks `first` .. `first + count - 1` of the job.
  std::vector<std::string> newTask(int first = 1, int count = 1) const;

  // Writes the job file.
  void write(const Job& job);

  // Options that start the adapter with `arguments` after its name, and with a PATH that does not
  // depend on the user who runs the tests.
  ProcessOptions adapter(const std::vector<std::string>& arguments) const;

  // The same, with a fault of tests/support/faults.cpp.
  ProcessOptions withFault(const std::string& fault,
                           const std::vector<std::string>& arguments) const;

  ProcessResult run(const std::vector<std::string>& arguments) const;

  // Writes the job whose command is `arguments` and runs its first task.
  ProcessResult runCommand(const std::string& arguments);

  // The path of the probe's report. As a command: probe() + " more arguments".
  std::string probe() const;
  Report report() const;

  // Options like those of `adapter`, for an unprivileged process, whoever runs the tests: for root,
  // the adapter is copied to a place where another user may execute it, and started as that user.
  ProcessOptions unprivileged(const std::vector<std::string>& arguments) const;

  // Asserts the result of a request whose only task could not be executed: the child reports it, on
  // `error`, and writes the inherited "Calling" line once more, before or after the parent's second
  // line.
  void expectNotExecuted(const ProcessResult& result, const std::string& command,
                         const std::string& reason) const;

  const std::string& folder() const {
    return folder_.path();
  }

  TempFolder folder_;
  std::string jobFile_ = folder_.file("job.xml");
};

// The line that announces a command, and the one that announces its process, with "PID" for the id.
std::string calling(const std::string& commandLine, const std::string& folder);
inline constexpr char processStarted[] = "[ServerMessage]ProcessStarted processId=PID\n";

// `output` with every announced process id replaced by "PID".
std::string withoutPids(const std::string& output);

// `output` with the adapter's lines before all others; the order within each kind is kept.
//
// The adapter writes its lines about a task after creating the child, so a quick task may write
// first: the order between the two is not fixed.
std::string adapterLinesFirst(const std::string& output);

// Asserts the whole result of a process, except the ids of its children and the order between the
// adapter's lines and the tasks'. `status` is as from describeStatus.
void expectResult(const ProcessResult& result, const std::string& output, const std::string& error,
                  const std::string& status);

// An id as in /proc/PID/status: real, effective, saved and file system.
std::string fourTimes(unsigned id);

// The reply to GetInfo of an adapter of that name.
std::string infoReply(const std::string& name);

// Messages about a task that ended with a code, a program that cannot be executed, and a run folder
// that cannot be entered.
std::string exitCodeLine(int code);
std::string cannotExecute(const std::string& command, const std::string& reason);
std::string cannotEnter(const std::string& folder, const std::string& reason);

// What a program of the system writes when it fails, since the wording and the name before it
// differ between systems. `prepare` is called in its process, to become the user that it runs as.
std::string errorOf(const std::vector<std::string>& command,
                    const std::function<void()>& prepare = {});

// The same for /bin/chmod when it cannot make the file executable.
std::string chmodError(const std::string& file, const std::function<void()>& prepare = {});

// The messages after a failed fork, including that of the wait after it: usually that there is no
// child.
std::string cannotFork(const std::string& command,
                       const std::string& wait = "Wait Error:No child processes\n");

// What the C++ library writes for an uncaught exception.
std::string terminateText(const std::string& type, const std::string& what);

}  // namespace runlet_test
