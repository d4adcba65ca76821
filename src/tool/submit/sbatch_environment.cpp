#include "tool/submit/sbatch_environment.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace runlet_tool {
namespace {

using Words = std::vector<std::string>;

// Beginnings of variables that nobody's tasks get. SBATCH_WAIT would have sbatch wait, and a mask
// in a variable would go before that of the process.
constexpr std::string_view unwanted[] = {"SBATCH_WAIT=", "SLURM_UMASK="};

// Beginnings of the variables of root that tasks of others may see.
constexpr std::string_view harmless[] = {
    "LANG=", "LANGUAGE=", "LC_", "PATH=", "SBATCH_", "SLURM_CLUSTERS=", "SLURM_CONF=", "TZ=",
};

constexpr mode_t writableByOthers = 022;
constexpr mode_t maskBits = 0777;

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
  if (user == nullptr) return;
  const std::pair<const char*, const char*> variables[] = {{"HOME", user->pw_dir},
                                                           {"LOGNAME", user->pw_name},
                                                           {"SHELL", user->pw_shell},
                                                           {"USER", user->pw_name}};
  for (const auto& [name, value] : variables) {
    if (!hasVariable(*environment, name)) environment->push_back(std::string(name) + "=" + value);
  }
}

}  // namespace

Words sbatchEnvironment(const runlet::AdapterContext& context, const Words& keptNames) {
  const bool isRoot = geteuid() == 0;
  Words environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const bool isNamed = std::count(keptNames.begin(), keptNames.end(), nameOf(*variable)) > 0;
    const bool isKept = !isRoot || isNamed || beginsWithOneOf(*variable, harmless);
    if (isKept && !beginsWithOneOf(*variable, unwanted)) environment.emplace_back(*variable);
  }
  if (isRoot) addUser(static_cast<uid_t>(context.uid), &environment);
  std::sort(environment.begin(), environment.end());
  return environment;
}

mode_t sbatchMask(const runlet::AdapterContext& context) {
  return (static_cast<mode_t>(context.umask) & maskBits) | writableByOthers;
}

MaskForNewFiles::MaskForNewFiles(mode_t mask) : before_(umask(mask)) {}

MaskForNewFiles::~MaskForNewFiles() {
  umask(before_);
}

std::string complaintAboutVariable(const std::string& name) {
  const bool isName = !name.empty() && name.find('=') == std::string::npos;
  return isName ? "" : name + " is no name of a variable";
}

}  // namespace runlet_tool
