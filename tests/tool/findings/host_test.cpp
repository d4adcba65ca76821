// Findings about the machine.

#include <grp.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "findings.h"
#include "mounts.h"

namespace runlet_test {
namespace {

constexpr unsigned unknownId = 3999999;

class HostFindings : public Findings {
 protected:
  HostFindings() {
    host_ = true;
  }

  // Creates a folder that only root may enter, whoever runs the tests.
  void useClosedFolder() {
    folder_.makeFolder("closed", 0600);
  }

  void expectFixedRan() {
    runFolder_ = folder();
    expectFixed(called("/bin/echo 1") + "1\n");
  }
};

// A job without faults, except in what it runs.
std::string jobOf(const std::string& command, const Strings& tasks) {
  std::string text = "<Job><cmdData><Arguments>{" + command + "}</Arguments>" +
                     "<TaskTimeout>30</TaskTimeout><uid>1000</uid><gid>1000</gid><TaskList>";
  for (const std::string& task : tasks) text += "<Task><Params>{" + task + "}</Params></Task>";
  return text + "</TaskList><JobParams/></cmdData></Job>";
}

TEST_F(HostFindings, RJ090NoRunFolder) {
  const std::string shots = folder_.file("shots");
  expectFound({{"RJ090", "error", 4, 20, shots, ""}});
  expectBadRefused(cannotEnter(shots, "No such file or directory"));
  expectFixedRan();
}

TEST_F(HostFindings, RJ091RunFolderClosedToTheUserOfSeveralTasks) {
  useClosedFolder();
  expectFound({{"RJ091", "error", 4, 20, folder_.file("closed"), ""}});
  REQUIRE_ROOT();
  runFolder_ = folder_.file("closed");
  expectBad(called("/bin/echo 1") + "1\n", cannotEnter(runFolder_, "Permission denied"),
            "exit 255");
  runFolder_ = folder();
  expectFixed(called("/bin/echo 1") + called("/bin/echo 2") + "1\n2\n");
}

TEST_F(HostFindings, RJ092RunFolderClosedToTheUserOfOneTask) {
  useClosedFolder();
  expectFound({{"RJ092", "warning", 4, 20, folder_.file("closed"), ""}});
  REQUIRE_ROOT();
  runFolder_ = folder_.file("closed");
  expectBad(called("/bin/echo 1") + "1\n");
  expectFixedRan();
}

TEST_F(HostFindings, NameEveryTaskOfAMissingProgram) {
  given_[bad] = readFile(samplesFolder() + "/RJ091/fixed.xml");
  given_[bad].replace(given_[bad].find("/bin/echo"), 9, "/bin/no-such-echo");
  expectCheck(bad, {{"RJ093", "error", 3, 17, "/bin/no-such-echo", "all"}});
}

TEST_F(HostFindings, RJ093ProgramNotFound) {
  expectFound({{"RJ093", "error", 3, 17, "no-such-renderer", "all"}});
  expectBadNotExecuted("no-such-renderer 1");
  expectFixed(called("echo 1") + "1\n");
}

class ScriptFindings : public HostFindings {
 protected:
  void expectFixedScript() {
    const std::string line = folder_.file("script") + " 1";
    expectFixed(called(line) + "ran 1\n");
  }

  void SetUp() override {
    HostFindings::SetUp();
    writeScript("script", "#!/bin/sh\necho ran \"$@\"\n");
  }
};

TEST_F(ScriptFindings, RJ094MissingInterpreter) {
  writeScript("broken", "#!/nowhere/sh\necho ran\n");
  expectFound({{"RJ094", "error", 3, 17, folder_.file("broken"), "all"}});
  expectBadNotExecuted(folder_.file("broken") + " 1");
  expectFixedScript();
}

// The chain of interpreters is followed as far as the system follows it.
TEST_F(ScriptFindings, FollowInterpretersAsTheSystemDoes) {
  const std::string script = folder_.file("script");
  writeScript("inner", "#!" + script + "\n");
  writeScript("loop", "#!" + folder_.file("loop") + "\n");
  writeScript("text", "echo ran\n");
  struct Row {
    std::string text;
    std::string codes;
  };
  const std::string longName(300, 'x');
  const Row rows[] = {
      {"#!/bin/sh\necho ran\n", ""},
      {"#! \t/bin/sh -e\necho ran\n", ""},
      {"#!" + folder_.file("inner") + "\n", ""},
      {"#!" + folder_.file("loop") + "\n", "RJ094"},
      {"#!" + folder_.file("text") + "\n", "RJ095"},
      {"#!/bin/sh\r\necho ran\n", "RJ094"},
      {"#!/" + longName + "\n", "RJ095"},
      {"#!/bin/sh " + longName + "\n", ""},
      {"#!/" + longName + " -e\n", "RJ095"},
      {"#!/nowhere", "RJ094"},
      {"#!\n", "RJ095"},
      {"#! \n", "RJ095"},
      {"#!", "RJ094"},
      {"#! ", "RJ094"},
      {"#!" + std::string(300, ' ') + "/bin/sh\n", "RJ095"},
      {std::string("#!/bin/sh\0x\n", 13), ""},
      {"", "RJ095"},
      {"x", "RJ095"},
  };
  for (const Row& row : rows) {
    writeScript("bare", row.text);
    given_[bad] = jobOf(folder_.file("bare") + " %tn", {"a"});
    EXPECT_EQ(summaryOf(bad).codes, row.codes) << row.text;
    const bool isExecuted = runTasks(bad).error.find("Cannot execute") == std::string::npos;
    EXPECT_EQ(isExecuted, row.codes != "RJ094") << row.text;
  }
}

// Root makes the first task's program executable, the user those of later tasks.
TEST_F(HostFindings, KnowWhoMakesAProgramExecutable) {
  REQUIRE_ROOT();
  for (const char* name : {"first", "second"}) {
    folder_.write(name, "#!/bin/sh\n", 0644);
  }
  given_[bad] = jobOf("%tp1 x", {"first", "second"});
  options_ = {"-a", folder_.file("app")};
  EXPECT_EQ(summaryOf(bad).codes, "RJ093");
  EXPECT_NE(runTasks(bad).error.find("Cannot execute"), std::string::npos);
  ASSERT_EQ(chmod(folder_.file("first").c_str(), 0644), 0);
  const Account& user = plainAccount();
  ASSERT_EQ(chown(folder_.file("second").c_str(), user.uid, user.gid), 0);
  EXPECT_EQ(summaryOf(bad).codes, "");
  EXPECT_EQ(runTasks(bad).error.find("Cannot execute"), std::string::npos);
}

TEST_F(ScriptFindings, RJ095ScriptWithoutAnInterpreterLine) {
  writeScript("bare", "echo ran by `cat /proc/$$/comm`\n");
  expectFound({{"RJ095", "warning", 3, 17, folder_.file("bare"), "all"}});
  expectBad(called(folder_.file("bare") + " 1") + "ran by sh\n");
  expectFixedScript();
}

TEST_F(HostFindings, RJ096UnknownUserName) {
  options_ = {"-u", "no-such-artist"};
  expectFound({{"RJ096", "error", 0, 0, "no-such-artist", ""}});
  errno = 0;
  ASSERT_EQ(getpwnam("no-such-artist"), nullptr);
  const std::string reason = errno != 0 ? std::strerror(errno) : "No such user";
  expectBad(calling("/bin/echo 1", folder()),
            "Cannot obtain info for user no-such-artist:" + reason, "exit 255");
  expectFixedRan();
}

TEST_F(HostFindings, RJ097UserIdWithoutAnAccount) {
  ASSERT_EQ(getpwuid(unknownId), nullptr);
  expectFound({{"RJ097", "warning", 5, 10, "3999999", ""}});
  REQUIRE_ROOT();
  expectBad(called("/usr/bin/id -u") + "3999999\n");
  expectFixed(called("/usr/bin/id -u") + std::to_string(plainAccount().uid) + "\n");
}

// The task then also lacks the group of its user.
TEST_F(HostFindings, RJ098GroupIdWithoutAGroup) {
  ASSERT_EQ(getgrgid(unknownId), nullptr);
  expectFound({{"RJ099", "note", 5, 10, plainAccount().group, ""},
               {"RJ098", "warning", 6, 10, "3999999", ""}});
  REQUIRE_ROOT();
  expectBad(called("/usr/bin/id -g") + "3999999\n");
  expectFixed(called("/usr/bin/id -g") + std::to_string(plainAccount().gid) + "\n");
}

// A machine with its own users and groups, for both programs.
class GroupFindings : public HostFindings {
 protected:
  void prepare(ProcessOptions* options) const override {
    const std::string passwd = folder_.file("passwd");
    const std::string group = folder_.file("group");
    options->prepare = [passwd, group] {
      const bool done = enterOwnMounts() &&
                        mount(passwd.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) == 0 &&
                        mount(group.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0 &&
                        setgroups(0, nullptr) == 0;
      if (!done) _exit(95);
    };
  }

  void SetUp() override {
    HostFindings::SetUp();
    folder_.write("passwd",
                  "root:x:0:0::/:/bin/sh\n"
                  "artist:x:70001:70001::/:/bin/sh\n"
                  "helper:x:70002:70001::/:/bin/sh\n");
    folder_.write("group", "root:x:0:\nstudio:x:70001:\nstorage:x:70009:artist\n");
  }
};

TEST_F(GroupFindings, RJ099GroupsThatTheTaskWillNotHave) {
  REQUIRE_ROOT();
  REQUIRE_MOUNTS();
  expectFound({{"RJ099", "note", 5, 10, "storage", ""}});
  expectBad(called("/usr/bin/id -G") + "70001\n");
  expectFixed(called("/usr/bin/id -G") + "70001\n");
}

}  // namespace
}  // namespace runlet_test
