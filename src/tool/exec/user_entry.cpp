#include "tool/exec/user_entry.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace runlet_tool {
namespace {

using Variables = std::vector<std::pair<std::string, std::string>>;

constexpr std::string_view keptNames[] = {"PATH", "LANG", "LANGUAGE"};
constexpr std::string_view keptPrefix = "LC_";

bool isKept(std::string_view name, const std::vector<std::string>& kept) {
  return name.starts_with(keptPrefix) ||
         std::find(std::begin(keptNames), std::end(keptNames), name) != std::end(keptNames) ||
         std::find(kept.begin(), kept.end(), name) != kept.end();
}

Variables variablesOf(uid_t uid) {
  const passwd* const entry = getpwuid(uid);
  const std::string name = entry != nullptr ? entry->pw_name : std::to_string(uid);
  return {{"HOME", entry != nullptr ? entry->pw_dir : "/"},
          {"USER", name},
          {"LOGNAME", name},
          {"SHELL", entry != nullptr ? entry->pw_shell : "/bin/sh"}};
}

Variables keptVariables(const std::vector<std::string>& kept) {
  Variables variables;
  for (char** next = environ; next != nullptr && *next != nullptr; ++next) {
    const std::string_view variable = *next;
    const std::string_view name = variable.substr(0, variable.find('='));
    if (name.size() == variable.size() || !isKept(name, kept)) continue;
    variables.emplace_back(name, variable.substr(name.size() + 1));
  }
  return variables;
}

void setAll(const Variables& variables) {
  for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace

std::vector<gid_t> groupsOf(uid_t uid) {
  const passwd* const entry = getpwuid(uid);
  if (entry == nullptr) return {};
  int count = 0;
  getgrouplist(entry->pw_name, entry->pw_gid, nullptr, &count);  // yields how many there are
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  getgrouplist(entry->pw_name, entry->pw_gid, groups.data(), &count);
  groups.resize(std::min(groups.size(), static_cast<std::size_t>(count)));
  return groups;
}

void setEnvironmentOf(uid_t uid, const std::vector<std::string>& kept) {
  const Variables variables = keptVariables(kept);
  const Variables ofUser = variablesOf(uid);
  clearenv();
  setAll(ofUser);
  setAll(variables);  // last: what was asked for by name stays, HOME too
}

}  // namespace runlet_tool
