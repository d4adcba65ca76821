// The built runlet-job under test.
#pragma once

#include <string>
#include <vector>

#include "process.h"

namespace runlet_test {

// Options that start runlet-job with `arguments` after its name, and with a PATH that does not
// depend on the user who runs the tests. If they begin with "run", the record is a new file, unless
// they say otherwise.
ProcessOptions tool(const std::vector<std::string>& arguments);

ProcessResult runTool(const std::vector<std::string>& arguments);

// The path of the record that the last such options name.
std::string lastRecord();

// The claims of the processes that write that record.
std::vector<std::string> claimsOf(const std::string& record);

// The process that starts the tasks of that run; -1 if there is none.
pid_t starterOf(pid_t run);

// The id in the line of `run` that begins "runlet-job: run: batch ID"; empty if there is none.
std::string batchOf(const std::string& error);

// `text` without that line.
std::string withoutBatchLine(std::string text);

// `text` with "ID" for the ids of batches in paths.
std::string withoutBatchIds(const std::string& text);

// The folder of the latest batch of the job NAME.xml in its log folder; if there is none, a path
// that does not exist.
std::string batchFolder(const std::string& logFolder, const std::string& name);

// `text` without the note about the session keyring that a task of another user gets if the system
// forbids keyrings, as in some containers.
std::string withoutKeyringNote(std::string text);

// Asserts the whole result of a process, except that note, the line about the batch and its id.
// `status` is as from describeStatus.
void expectTool(const ProcessResult& result, const std::string& output, const std::string& error,
                const std::string& status);

// The message about a value that is not a positive number. Its wording comes from CLI11 and differs
// between versions.
std::string notPositive(const std::string& value);

}  // namespace runlet_test
