// The built adapter under faults: whatever fails, it must leave nothing behind.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "adapter_test.h"

namespace runlet_test {

// Processes that outlive the adapter, running or as zombies, become children of the test, and at
// its end there must be none.
class FaultTest : public AdapterTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The names of all entries in the folder of the test, sorted.
  std::vector<std::string> files() const;

  // Writes a script for /bin/sh and returns the command that runs it.
  std::string script(const std::string& name, const std::string& text) const;

  // A shell command that waits until the test creates the file `name`, or until the test ends. The
  // current folder must be that of the test.
  static std::string until(const std::string& name);
};

// Reads the adapter's output up to the announcement of a child, and returns the child's id; -1 if
// there is none.
pid_t announcedChild(Process* adapter);

// Retries until `holds` returns true. False on time-out.
bool eventually(const std::function<bool()>& holds);

// The system's view of a process: its state as a letter ('Z' for a zombie; '-' if there is no such
// process), its parent and its children.
char stateOf(pid_t pid);
pid_t parentOf(pid_t pid);
std::vector<pid_t> childrenOf(pid_t pid);

// The end, as from describeStatus, of a process that outlived the adapter; -1 = of any one.
std::string endOfOrphan(pid_t pid);

}  // namespace runlet_test
