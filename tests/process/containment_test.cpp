// What SECURITY.md says about the adapter: what a task inherits from the starter, and how much of
// it the recipe there removes.

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/keyctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "adapter_test.h"
#include "pseudo_terminal.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

constexpr unsigned starterId = 65533;  // neither root nor the job's user

// A job whose task reports its state to a folder where another user may write.
class ContainmentTest : public AdapterTest {
 protected:
  void SetUp() override {
    probe_ = folder_.file("probe");
    std::filesystem::copy_file(probePath, probe_);
    work_ = folder_.makeFolder("work", 0777);
    job_.arguments = probe_ + " report";
    job_.set("WorkingFolder", work_);
  }

  void writeForOther() {
    job_.set("uid", std::to_string(otherId)).set("gid", std::to_string(otherId));
    write(job_);
  }

  std::string lines() const {
    return calling(job_.arguments, work_) + processStarted;
  }

  Report workReport() {
    folder_.write("report", readFile(work_ + "/report"));
    return report();
  }

  Job job_;
  std::string probe_;
  std::string work_;
};

class Inheritance : public ContainmentTest {};
class InheritanceOfRoot : public ContainmentTest {
  void SetUp() override {
    REQUIRE_ROOT();
    ContainmentTest::SetUp();
  }
};
using RecipeOfRoot = InheritanceOfRoot;

// Opens the terminal as the three streams. The process leads a session, so its first terminal
// becomes the controlling one.
void takeTerminal(const std::string& name) {
  const int descriptor = open(name.c_str(), O_RDWR);
  for (const int stream : {0, 1, 2}) {
    if (dup2(descriptor, stream) == -1) _exit(97);
  }
  close(descriptor);
}

TEST_F(Inheritance, OfATerminalIsComplete) {
  const Terminal terminal;
  write(job_);
  ProcessOptions options = adapter(newTask());
  options.prepare = [&] { takeTerminal(terminal.name()); };
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  Report lines = workReport();
  EXPECT_EQ(lines["session"], Strings{std::to_string(result.pid)});
  EXPECT_EQ(lines["terminal"], Strings{"yes"});
  // The last is the old standard error.
  EXPECT_EQ(lines["descriptor"], (Strings{"0 " + terminal.name(), "1 " + terminal.name(),
                                          "2 " + terminal.name(), "3 " + terminal.name()}));
}

// If the system has no keyrings or does not allow them, there is none to inherit: -1 for both.
TEST_F(Inheritance, OfTheSessionKeyringIsComplete) {
  write(job_);
  folder_.write("own", "");
  ProcessOptions options = adapter(newTask());
  options.prepare = [this] {
    syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr);
    const long keyring = syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_SESSION_KEYRING, 0);
    folder_.write("own", std::to_string(keyring));
  };
  expectResult(runProcess(options), lines(), "", "exit 0");
  EXPECT_EQ(workReport()["keyring"], Strings{readFile(folder_.file("own"))});
}

// Switches the process to another user, keeping the right to change users and groups across exec.
void becomeStarterWithCapabilities() {
  constexpr unsigned kept = (1U << CAP_SETUID) | (1U << CAP_SETGID);
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {{kept, kept, kept}, {0, 0, 0}};
  bool isDone = prctl(PR_SET_KEEPCAPS, 1) == 0 && setgroups(0, nullptr) == 0 &&
                setgid(starterId) == 0 && setuid(starterId) == 0;
  isDone = isDone && syscall(SYS_capset, &header, data) == 0;
  for (const unsigned long capability : {0UL + CAP_SETUID, 0UL + CAP_SETGID}) {
    isDone = isDone && prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0) == 0;
  }
  if (!isDone) _exit(97);
}

// Only a change of the user id from 0 drops capabilities.
TEST_F(InheritanceOfRoot, IncludesTheCapabilitiesOfAStarterThatIsNotRoot) {
  writeForOther();
  ProcessOptions options = adapter(newTask());
  options.program = folder_.file("adapter");
  std::filesystem::copy_file(adapterPath, options.program);
  options.prepare = becomeStarterWithCapabilities;
  expectResult(runProcess(options), lines(), "", "exit 0");
  Report lines = workReport();
  EXPECT_EQ(lines["Uid:"], Strings{fourTimes(otherId)});
  EXPECT_EQ(lines["CapEff:"], Strings{"00000000000000c0"});
}

TEST_F(InheritanceOfRoot, HasNoCapabilities) {
  writeForOther();
  expectResult(run(newTask()), lines(), "", "exit 0");
  Report lines = workReport();
  EXPECT_EQ(lines["CapPrm:"], Strings{"0000000000000000"});
  EXPECT_EQ(lines["CapEff:"], Strings{"0000000000000000"});
}

// The command from the page, unindented, with words replaced.
std::string recipe(const std::vector<std::pair<std::string, std::string>>& words) {
  std::istringstream page(readFile(std::string(sourceFolder) + "/SECURITY.md"));
  std::string block;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("    ")) {
      block += line + "\n";
    } else if (block.find("UserRunletAdapter") != std::string::npos) {
      break;
    } else {
      block.clear();
    }
  }
  for (const auto& [from, to] : words) {
    const std::size_t at = block.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) block.replace(at, from.size(), to);
  }
  return block;
}

// Sanitizers, which are in the task too, need more memory than the recipe allows.
#if defined(RUNLET_IS_SANITIZED)
const std::string memory = "unlimited";
#else
const std::string memory = "8589934592";
#endif

TEST_F(RecipeOfRoot, LeavesATaskNothingFromItsStarter) {
  const Terminal terminal;
  writeForOther();
  ProcessOptions options;
  options.arguments = {"/bin/sh", "-c",
                       recipe({{"8589934592", memory},
                               {"/usr/local/bin/UserRunletAdapter", plainAdapterPath},
                               {"JOB", jobFile_},
                               {"OUTPUT", folder_.file("output")},
                               {"ERRORS", folder_.file("errors")}})};
  options.environment = {{"SECRET_TOKEN", "x"}};
  options.prepare = [&] {
    takeTerminal(terminal.name());
    const gid_t groups[] = {4, 24};
    if (setgroups(2, groups) != 0) _exit(97);
  };
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  EXPECT_EQ(withoutPids(readFile(folder_.file("output"))), lines());
  EXPECT_EQ(readFile(folder_.file("errors")), "");
  Report lines = workReport();
  EXPECT_EQ(lines["Uid:"], Strings{fourTimes(otherId)});
  EXPECT_EQ(lines["Groups:"], Strings{" "});
  EXPECT_EQ(lines["CapPrm:"], Strings{"0000000000000000"});
  EXPECT_EQ(lines["CapInh:"], Strings{"0000000000000000"});
  EXPECT_EQ(lines["NoNewPrivs:"], Strings{"1"});
  EXPECT_EQ(lines["terminal"], Strings{"no"});
  EXPECT_NE(lines["session"], Strings{std::to_string(result.pid)});
  EXPECT_EQ(lines["descriptor"],
            (Strings{"0 /dev/null", "1 " + folder_.file("output"), "2 " + folder_.file("output"),
                     "3 " + folder_.file("errors")}));
  EXPECT_EQ(lines["variable"], (Strings{"PATH=/usr/bin:/bin", "LANG=C.UTF-8"}));
  const auto limit = [&](const std::string& name) {
    for (const std::string& line : lines["limit"]) {
      if (line.starts_with(name)) return std::stoll(line.substr(name.size()));
    }
    return -1LL;
  };
  if (memory != "unlimited") {
    EXPECT_EQ(limit("Max address space"), 8589934592);
  }
  EXPECT_EQ(limit("Max processes"), 4096);
  EXPECT_EQ(limit("Max core file size"), 0);
}

}  // namespace
}  // namespace runlet_test
