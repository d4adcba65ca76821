// Mounts visible only to one process and its children.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace runlet_test {

// Moves the calling process into its own mount namespace, isolated from the system's. False if the
// system does not allow it.
bool enterOwnMounts();

// Whether enterOwnMounts would succeed.
bool mayMount();

// Skips the test if it may not mount; if RUNLET_FORBID_SKIPS is set, fails it.
#define REQUIRE_MOUNTS()                                                          \
  if (!runlet_test::mayMount()) {                                                 \
    if (std::getenv("RUNLET_FORBID_SKIPS") != nullptr) FAIL() << "may not mount"; \
    GTEST_SKIP() << "needs the right to mount";                                   \
  }                                                                               \
  static_cast<void>(0)

}  // namespace runlet_test
