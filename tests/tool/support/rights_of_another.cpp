#include "rights_of_another.h"

#include <grp.h>
#include <linux/capability.h>
#include <linux/keyctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

// Whether the variable may come from the tests or their environment.
bool isInherited(const std::string& variable) {
  const std::string name = variable.substr(0, variable.find('='));
  const Strings own = {"LC_ALL", "LC_TIME"};
  if (name == "RUNLET_FAULT") return true;
  return name.starts_with("LC_") && std::find(own.begin(), own.end(), name) == own.end();
}

}  // namespace

void setStrangeGroups() {
  const gid_t groups[] = {5, 12345};
  if (setgroups(2, groups) != 0) _exit(97);
}

void haveAmbientCapabilities(uid_t uid) {
  const unsigned rights = 1U << CAP_SETUID | 1U << CAP_SETGID;
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[2]{{rights, rights, rights}, {0, 0, 0}};
  const bool isDone = prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == 0 && setgroups(0, nullptr) == 0 &&
                      setgid(uid) == 0 && setuid(uid) == 0 &&
                      syscall(SYS_capset, &header, sets) == 0 &&
                      prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_SETUID, 0, 0) == 0 &&
                      prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_SETGID, 0, 0) == 0;
  if (!isDone) _exit(97);
}

void expectNoCapabilities(Report report) {
  for (const char* kind : {"CapInh:", "CapPrm:", "CapEff:", "CapAmb:"}) {
    EXPECT_EQ(report[kind], Strings{"0000000000000000"}) << kind;
  }
}

void joinNewKeyring(const std::string& path) {
  std::ofstream(path) << syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr);
}

void expectKeyring(const std::string& path, Report report, const std::string& error, bool isOwn) {
  const std::string ofStarter = readFile(path);
  if (ofStarter == "-1") {
    EXPECT_EQ(withoutKeyringNote(error) != error, isOwn) << error;
    return;
  }
  ASSERT_EQ(report["keyring"].size(), 1U);
  EXPECT_NE(report["keyring"][0], "-1");
  EXPECT_EQ(report["keyring"][0] != ofStarter, isOwn) << ofStarter;
}

void expectEnvironmentOfTheUser(const RunProbe& runProbe) {
  const Strings common = {"LANG=de", "LANGUAGE=en", "LC_ALL=C", "LC_TIME=x=y",
                          "PATH=/usr/bin:/bin"};
  const struct {
    std::string fault;
    Strings kept;
    Strings variables;
  } rows[] = {
      {"none", {}, {"HOME=/", "LOGNAME=4200071", "SHELL=/bin/sh", "USER=4200071"}},
      {"known-user", {}, {"HOME=/home/shot", "LOGNAME=shot", "SHELL=/bin/shots", "USER=shot"}},
      {"none",
       {"--keep-env", "SHOT", "--keep-env", "HOME", "--keep-env", "MISSING"},
       {"HOME=/of/root", "LOGNAME=4200071", "SHELL=/bin/sh", "SHOT=a b", "USER=4200071"}},
  };
  for (const auto& row : rows) {
    Strings variables = runProbe(row.fault, row.kept,
                                 {{"LANG", "de"},
                                  {"LANGUAGE", "en"},
                                  {"LC_TIME", "x=y"},
                                  {"HOME", "/of/root"},
                                  {"SHOT", "a b"},
                                  {"SECRET", "of root"}})["variable"];
    std::erase_if(variables, isInherited);
    std::sort(variables.begin(), variables.end());
    Strings expected = row.variables;
    expected.insert(expected.end(), common.begin(), common.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(variables, expected);
  }
}

}  // namespace runlet_test
