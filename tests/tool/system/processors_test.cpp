// How many processors there are to use.

#include "tool/system/processors.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>

#include "temp_folder.h"

namespace runlet_tool {
namespace {

using runlet_test::TempFolder;

TEST(Processors, AreThoseOfTheProcessWithinItsQuota) {
  cpu_set_t set;
  ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
  const std::int32_t own = CPU_COUNT(&set);
  const struct {
    const char* groups;
    const char* ofGroup;
    const char* above;
    std::int32_t quota;
  } rows[] = {
      {"0::/a/b\n", "100000 100000\n", "max 100000\n", 1},
      {"0::/a/b\n", "max 100000\n", "50000 100000\n", 1},
      {"0::/a/b\n", "max 100000\n", "150000 100000\n", 2},
      {"0::/a/b\n", "200000 100000\n", "max 100000\n", 2},
      {"0::/a/b\n", "max 100000\n", "max 100000\n", own},
      {"0::/a/b\n", "9223372036854775807 1\n", "x\n", own},
      {"0::/a/b\n", "0 0\n", "-1 5\n", own},
      {"1:cpu:/a/b\n", "100000 100000\n", "max 100000\n", own},
      {"", "100000 100000\n", "max 100000\n", own},
  };
  for (const auto& row : rows) {
    const TempFolder root;
    for (const char* folder : {"proc", "proc/self", "sys", "sys/fs", "sys/fs/cgroup",
                               "sys/fs/cgroup/a", "sys/fs/cgroup/a/b"}) {
      root.makeFolder(folder);
    }
    root.write("proc/self/cgroup", row.groups);
    root.write("sys/fs/cgroup/a/b/cpu.max", row.ofGroup);
    root.write("sys/fs/cgroup/a/cpu.max", row.above);
    EXPECT_EQ(usableProcessors(root.path()), std::min(own, row.quota))
        << row.groups << row.ofGroup << row.above;
  }
}

TEST(Processors, AreLimitedByTheQuotaOfTheRootOfAContainer) {
  const TempFolder root;
  for (const char* folder : {"proc", "proc/self", "sys", "sys/fs", "sys/fs/cgroup"}) {
    root.makeFolder(folder);
  }
  root.write("proc/self/cgroup", "0::/\n");
  root.write("sys/fs/cgroup/cpu.max", "10000 100000\n");
  EXPECT_EQ(usableProcessors(root.path()), 1);
}

}  // namespace
}  // namespace runlet_tool
