#include "tool/submit/sbatch_environment.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "tool/batch/user_environment.h"

namespace runlet_tool {
namespace {

using Words = std::vector<std::string>;

// Beginnings of variables that nobody's tasks get. SBATCH_WAIT would have sbatch wait, and a mask
// in a variable would go before that of the process.
constexpr std::string_view unwanted[] = {"SBATCH_WAIT=", "SLURM_UMASK="};

constexpr mode_t writableByOthers = 022;
constexpr mode_t maskBits = 0777;

bool isUnwanted(std::string_view variable) {
  return std::any_of(std::begin(unwanted), std::end(unwanted),
                     [=](std::string_view beginning) { return variable.starts_with(beginning); });
}

Words ownEnvironment() {
  Words environment;
  for (char** next = environ; *next != nullptr; ++next) environment.emplace_back(*next);
  std::sort(environment.begin(), environment.end());
  return environment;
}

}  // namespace

Words sbatchEnvironment(const runlet::AdapterContext& context, const Words& keptNames) {
  Words environment = ownEnvironment();
  if (geteuid() == 0) {
    // With what configures the cluster's programs, and the time zone.
    environment = userEnvironment(static_cast<uid_t>(context.uid), keptNames,
                                  {"SBATCH_", "SLURM_CLUSTERS=", "SLURM_CONF=", "TZ="});
  }
  std::erase_if(environment, isUnwanted);
  return environment;
}

mode_t sbatchMask(const runlet::AdapterContext& context) {
  return (static_cast<mode_t>(context.umask) & maskBits) | writableByOthers;
}

MaskForNewFiles::MaskForNewFiles(mode_t mask) : before_(umask(mask)) {}

MaskForNewFiles::~MaskForNewFiles() {
  umask(before_);
}

}  // namespace runlet_tool
