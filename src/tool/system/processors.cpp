#include "tool/system/processors.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>

namespace runlet_tool {
namespace {

constexpr std::int32_t unlimited = std::numeric_limits<std::int32_t>::max();

// The path of this process's control group below the mount point; empty if it has none in the
// unified hierarchy.
std::string controlGroup(const std::string& root) {
  std::ifstream groups(root + "/proc/self/cgroup");
  const std::string unified = "0::";
  for (std::string line; std::getline(groups, line);) {
    if (line.starts_with(unified)) return line.substr(unified.size());
  }
  return "";
}

// The quota in cpu.max, such as "150000 100000", in processors.
std::int32_t quotaOf(const std::string& folder) {
  std::ifstream file(folder + "/cpu.max");
  std::int64_t quota = 0;
  std::int64_t period = 0;
  // There is no number but "max" without a quota.
  if (!(file >> quota >> period) || quota <= 0 || period <= 0) return unlimited;
  const std::int64_t count = quota / period + (quota % period == 0 ? 0 : 1);
  return static_cast<std::int32_t>(std::min<std::int64_t>(count, unlimited));
}

}  // namespace

std::int32_t usableProcessors(const std::string& root) {
  cpu_set_t set;
  const bool isKnown = sched_getaffinity(0, sizeof set, &set) == 0;
  // With more processors than the set can hold, the call fails.
  std::int64_t count = isKnown ? CPU_COUNT(&set) : sysconf(_SC_NPROCESSORS_ONLN);
  const std::string mount = root + "/sys/fs/cgroup";
  std::filesystem::path folder = mount + controlGroup(root);
  for (; folder.native().size() >= mount.size(); folder = folder.parent_path()) {
    count = std::min<std::int64_t>(count, quotaOf(folder));
  }
  return static_cast<std::int32_t>(std::max<std::int64_t>(count, 1));
}

}  // namespace runlet_tool
