#include "tool/batch/user_environment.h"

#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>

namespace runlet_tool {
namespace {

using Words = std::vector<std::string>;

// Beginnings of the variables that say where programs are, and in which language they speak.
constexpr std::string_view harmless[] = {"LANG=", "LANGUAGE=", "LC_", "PATH="};

template <typename Beginnings>
bool beginsWithOneOf(std::string_view variable, const Beginnings& beginnings) {
  return std::any_of(std::begin(beginnings), std::end(beginnings),
                     [=](std::string_view beginning) { return variable.starts_with(beginning); });
}

std::string_view nameOf(std::string_view variable) {
  return variable.substr(0, variable.find('='));
}

bool hasVariable(const Words& environment, std::string_view name) {
  return std::any_of(environment.begin(), environment.end(),
                     [=](std::string_view variable) { return nameOf(variable) == name; });
}

void addUser(uid_t uid, Words* environment) {
  const passwd* const user = getpwuid(uid);
  const std::string name = user != nullptr ? user->pw_name : std::to_string(uid);
  const std::pair<const char*, std::string> variables[] = {
      {"HOME", user != nullptr ? user->pw_dir : "/"},
      {"LOGNAME", name},
      {"SHELL", user != nullptr ? user->pw_shell : "/bin/sh"},
      {"USER", name},
  };
  for (const auto& [variable, value] : variables) {
    if (!hasVariable(*environment, variable)) {
      environment->push_back(std::string(variable) + "=" + value);
    }
  }
}

}  // namespace

void addKeptVariables(CLI::App* verb, const std::string& help, Words* names) {
  verb->add_option("--keep-env", *names, help)
      ->expected(1)
      ->allow_extra_args(false)  // or the words after the name would be names, too
      ->take_all()
      ->check(CLI::Validator(complaintAboutVariable, ""))
      ->type_name("NAME");
}

std::string complaintAboutVariable(const std::string& name) {
  const bool isName = !name.empty() && name.find('=') == std::string::npos;
  return isName ? "" : name + " is no name of a variable";
}

Words userEnvironment(uid_t uid, const Words& kept, const std::vector<std::string_view>& more) {
  Words environment;
  for (char** next = environ; next != nullptr && *next != nullptr; ++next) {
    const std::string_view variable = *next;
    const bool isKept = beginsWithOneOf(variable, harmless) || beginsWithOneOf(variable, more) ||
                        std::count(kept.begin(), kept.end(), nameOf(variable)) > 0;
    if (isKept && variable.find('=') != std::string_view::npos) environment.emplace_back(variable);
  }
  addUser(uid, &environment);
  std::sort(environment.begin(), environment.end());
  return environment;
}

}  // namespace runlet_tool
