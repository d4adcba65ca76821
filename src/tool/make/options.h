// The options of make and the job they describe.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/make/complaint.h"

namespace runlet_tool {

// The options as given.
struct MakeOptions {
  std::optional<std::string> output;
  std::optional<std::string> frames;
  std::optional<std::string> chunk;
  std::optional<std::string> tasks;
  std::vector<std::string> params;
  std::optional<std::string> folder;
  std::optional<std::string> logs;
  std::optional<std::string> outputs;
  std::optional<std::string> timeout;
  std::optional<std::string> user;
  std::optional<std::string> group;
  std::optional<std::string> umask;
  std::optional<std::string> standardError;
  std::vector<std::string> command;  // at least one word
};

// Fills the job fields and lists of `*job`, which is new, from the options. Its `arguments` are the
// words of the command, separated by spaces and unquoted. False, with the option, its value and the
// reason, for a value that no job file can represent.
bool readJobOptions(const MakeOptions& options, runlet::AdapterContext* job, Complaint* complaint);

}  // namespace runlet_tool
