// Starters with rights of their own, and what a task of another user must not have of them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "adapter_test.h"

namespace runlet_test {

// For `prepare`: gives the process the groups 5 and 12345, of which no user is a member.
void setStrangeGroups();

// For `prepare`: makes the process one of that user and group, with the ambient capabilities to
// switch users and groups, as of a service that was given these in place of being root.
void haveAmbientCapabilities(uid_t uid);

// Asserts that the probe has found no capability, in any set.
void expectNoCapabilities(Report report);

// For `prepare`: gives the process a new session keyring, and writes its id to the file at `path`;
// -1 where the system keeps keyrings from the tests.
void joinNewKeyring(const std::string& path);

// Asserts that the task whose probe has reported has another session keyring than its starter, if
// `isOwn`, and else the same. `path` is where joinNewKeyring has written. Where the system keeps
// keyrings from the tests, `error`, what was written for the task, has the note about it if
// `isOwn`.
void expectKeyring(const std::string& path, Report report, const std::string& error, bool isOwn);

using Variables = std::vector<std::pair<std::string, std::string>>;

// Runs the probe as a task of the user 4200071 with a fault of tests/support/faults.cpp, further
// words for the command line, and variables added to the environment.
using RunProbe = std::function<Report(const std::string& fault,
                                      const std::vector<std::string>& words, const Variables&)>;

// Asserts which variables the task has then.
void expectEnvironmentOfTheUser(const RunProbe& runProbe);

// What the fault "core-files" writes where no core file would be left.
inline constexpr char noCoreFiles[] = "core file at setgroups: no\ncore file at keyctl: no\n";

}  // namespace runlet_test
