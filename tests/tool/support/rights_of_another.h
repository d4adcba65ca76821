// Starters with special rights, which a task of another user must not inherit.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "adapter_test.h"

namespace runlet_test {

// For `prepare`: gives the process the groups 5 and 12345, which have no members.
void setStrangeGroups();

// For `prepare`: switches the process to that user and group, with ambient capabilities to switch
// users and groups, like a service that was given these instead of running as root.
void haveAmbientCapabilities(uid_t uid);

// Asserts that the probe has found no capabilities in any set.
void expectNoCapabilities(Report report);

// For `prepare`: gives the process a new session keyring, and writes its id to the file at `path`;
// -1 if the system forbids keyrings.
void joinNewKeyring(const std::string& path);

// Asserts that the task, according to its probe, has a different session keyring from its starter
// if `isOwn`, otherwise the same. `path` is the file written by joinNewKeyring. If the system
// forbids keyrings and `isOwn`, `error`, the text written for the task, must have the note about
// it.
void expectKeyring(const std::string& path, Report report, const std::string& error, bool isOwn);

using Variables = std::vector<std::pair<std::string, std::string>>;

// Runs the probe as a task of the user 4200071 with a fault of tests/support/faults.cpp, more words
// on the command line, and additional environment variables.
using RunProbe = std::function<Report(const std::string& fault,
                                      const std::vector<std::string>& words, const Variables&)>;

// Asserts which variables the task then has.
void expectEnvironmentOfTheUser(const RunProbe& runProbe);

// What the fault "core-files" writes if no core file would be left.
inline constexpr char noCoreFiles[] = "core file at setgroups: no\ncore file at keyctl: no\n";

}  // namespace runlet_test
