// The built adapter under faults: whatever goes wrong, it may leave nothing behind.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "adapter_test.h"

namespace runlet_test {

// Processes that outlive the adapter, running or unwaited for, become children of the test, and at
// its end there must be none.
class FaultTest : public AdapterTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The names of all that is in the folder of the test, in order.
  std::vector<std::string> files() const;

  // A script for a job, and how a job calls it. It runs /bin/sh.
  std::string script(const std::string& name, const std::string& text) const;

  // The shell's words for "until the test makes the file `name`", which end with the test in any
  // case. The folder of the test must be the current one.
  static std::string until(const std::string& name);
};

// Reads what an adapter writes up to the announcement of a child, and yields the child's id; -1 if
// there is none.
pid_t announcedChild(Process* adapter);

// Tries again and again until `holds` yields true. False when that takes too long.
bool eventually(const std::function<bool()>& holds);

// What the system knows of a process: its state as a letter ('Z' for one that has ended and was
// not waited for; '-' if there is no such process), its parent and its children.
char stateOf(pid_t pid);
pid_t parentOf(pid_t pid);
std::vector<pid_t> childrenOf(pid_t pid);

// The end, as describeStatus has it, of a process that outlived the adapter; -1 = of any one.
std::string endOfOrphan(pid_t pid);

}  // namespace runlet_test
