// The built runlet-job under test.
#pragma once

#include <string>
#include <vector>

#include "process.h"

namespace runlet_test {

// Options that start runlet-job with `arguments` behind its own name, and with a PATH that does not
// depend on who runs the tests.
ProcessOptions tool(const std::vector<std::string>& arguments);

ProcessResult runTool(const std::vector<std::string>& arguments);

// `text` without the note about the session keyring that a task of another user gets where the
// system keeps keyrings from the tests, as in some containers.
std::string withoutKeyringNote(std::string text);

// Asserts all that came out of a process, that note aside. `status` as describeStatus has it.
void expectTool(const ProcessResult& result, const std::string& output, const std::string& error,
                const std::string& status);

// What is said of a value that is no positive number. The library of the options has the words for
// it, other ones in each version.
std::string notPositive(const std::string& value);

}  // namespace runlet_test
