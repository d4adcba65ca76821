#include "tool/batch/task_rights.h"

#include <grp.h>
#include <linux/capability.h>
#include <linux/keyctl.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

namespace runlet_tool {
namespace {

using runlet::UserRights;

// The groups of that user, including the primary one; none for a user not in the user database.
std::vector<gid_t> groupsOf(uid_t uid) {
  const passwd* const entry = getpwuid(uid);
  if (entry == nullptr) return {};
  int count = 0;
  getgrouplist(entry->pw_name, entry->pw_gid, nullptr, &count);  // sets `count`
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  getgrouplist(entry->pw_name, entry->pw_gid, groups.data(), &count);
  groups.resize(std::min(groups.size(), static_cast<std::size_t>(count)));
  return groups;
}

bool hasIds(const UserRights& rights) {
  const auto wantedUser = static_cast<uid_t>(rights.uid);
  const auto wantedGroup = static_cast<gid_t>(rights.gid);
  uid_t user[3];
  gid_t group[3];
  if (getresuid(&user[0], &user[1], &user[2]) != 0) return false;
  if (getresgid(&group[0], &group[1], &group[2]) != 0) return false;
  for (int i = 0; i < 3; ++i) {
    if (user[i] != wantedUser || group[i] != wantedGroup) return false;
  }
  return true;
}

// Ambient capabilities would survive the change of user and the exec. They are dropped with the
// permitted ones.
bool dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3]{};
  if (syscall(SYS_capset, &header, sets) != 0 || syscall(SYS_capget, &header, sets) != 0) {
    return false;
  }
  return std::all_of(std::begin(sets), std::end(sets), [](const __user_cap_data_struct& set) {
    return (set.permitted | set.effective | set.inheritable) == 0;
  });
}

// In the starter's keyring, the task could use the starter's keys.
bool joinOwnKeyring() {
  if (syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr) != -1) return true;
  const bool isBarred = errno == ENOSYS || errno == EPERM || errno == EACCES;
  std::fprintf(stderr, "runlet-job: no session keyring for the task: %s%s\n", std::strerror(errno),
               isBarred ? "; it keeps that of its starter" : "");
  return isBarred;
}

bool refuseMore(const UserRights& rights) {
  if (keepsNothing(rights)) return true;
  std::fprintf(stderr,
               "runlet-job: task not started: it would have more rights than user %u and "
               "group %u\n",
               static_cast<unsigned>(rights.uid), static_cast<unsigned>(rights.gid));
  return false;
}

using Words = std::vector<std::string>;

// Prefixes of the variables for the program path and the language.
constexpr std::string_view harmless[] = {"LANG=", "LANGUAGE=", "LC_", "PATH="};

template <typename Beginnings>
bool beginsWithOneOf(std::string_view variable, const Beginnings& beginnings) {
  return std::any_of(std::begin(beginnings), std::end(beginnings),
                     [=](std::string_view beginning) { return variable.starts_with(beginning); });
}

std::string_view variableName(std::string_view variable) {
  return variable.substr(0, variable.find('='));
}

bool isSet(const Words& environment, std::string_view name) {
  return std::any_of(environment.begin(), environment.end(),
                     [=](std::string_view variable) { return variableName(variable) == name; });
}

void addAccount(uid_t uid, Words* environment) {
  const passwd* const user = getpwuid(uid);
  const std::string name = user != nullptr ? user->pw_name : std::to_string(uid);
  const std::pair<const char*, std::string> variables[] = {
      {"HOME", user != nullptr ? user->pw_dir : "/"},
      {"LOGNAME", name},
      {"SHELL", user != nullptr ? user->pw_shell : "/bin/sh"},
      {"USER", name},
  };
  for (const auto& [variable, value] : variables) {
    if (!isSet(*environment, variable)) {
      environment->push_back(std::string(variable) + "=" + value);
    }
  }
}

}  // namespace

bool isOfAnother(std::int32_t uid) {
  return geteuid() == 0 && static_cast<uid_t>(uid) != 0;
}

// Changing ids or executing a program resets it.
void leaveNoCore() {
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

int setGroupsOf(uid_t uid) {
  const std::vector<gid_t> groups = groupsOf(uid);
  return setgroups(groups.size(), groups.data()) == 0 ? 0 : errno;
}

bool keepsNothing(const UserRights& rights) {
  return hasIds(rights) && (rights.uid == 0 || dropCapabilities());
}

bool takeTaskRights(UserRights* rights) {
  const bool isOther = isOfAnother(rights->uid);
  if (isOther) leaveNoCore();
  const int groupsError = isOther ? setGroupsOf(static_cast<uid_t>(rights->uid)) : 0;
  // Before reporting that error: if no group can be set at all, the job's own is the one to report.
  if (!takeUserRights(rights)) {
    std::fputc('\n', stderr);  // the adapter's text has no newline
    return false;
  }
  if (isOther) leaveNoCore();
  if (groupsError != 0) {
    std::fprintf(stderr, "runlet-job: cannot set the groups of user %u: %s\n",
                 static_cast<unsigned>(rights->uid), std::strerror(groupsError));
    return false;
  }
  return refuseMore(*rights) && (!isOther || joinOwnKeyring());
}

std::string complaintAboutVariable(const std::string& name) {
  const bool isName = !name.empty() && name.find('=') == std::string::npos;
  return isName ? "" : name + " is not a variable name";
}

Words userEnvironment(uid_t uid, const Words& kept, const std::vector<std::string_view>& more) {
  Words environment;
  for (char** next = environ; next != nullptr && *next != nullptr; ++next) {
    const std::string_view variable = *next;
    const bool isKept = beginsWithOneOf(variable, harmless) || beginsWithOneOf(variable, more) ||
                        std::count(kept.begin(), kept.end(), variableName(variable)) > 0;
    if (isKept && variable.find('=') != std::string_view::npos) environment.emplace_back(variable);
  }
  addAccount(uid, &environment);
  std::sort(environment.begin(), environment.end());
  return environment;
}

}  // namespace runlet_tool
