// Mounts that only one process and its children see.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace runlet_test {

// Puts the calling process into a name space for mounts of its own, in which nothing reaches the
// system's. False where the system does not allow it.
bool enterOwnMounts();

// Whether enterOwnMounts would succeed.
bool mayMount();

// Ends the test as skipped if it may not mount; where RUNLET_FORBID_SKIPS is set, as failed.
#define REQUIRE_MOUNTS()                                                          \
  if (!runlet_test::mayMount()) {                                                 \
    if (std::getenv("RUNLET_FORBID_SKIPS") != nullptr) FAIL() << "may not mount"; \
    GTEST_SKIP() << "needs the right to mount";                                   \
  }                                                                               \
  static_cast<void>(0)

}  // namespace runlet_test
