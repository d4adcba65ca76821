// The options of make and what they come to.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "tool/make/complaint.h"

namespace runlet_tool {

// As they were given.
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

// Fills the job fields and lists of `*job`, which is new, with what the options ask for. Its
// `arguments` are the words of the command with a space in between, without quotes. False, with the
// option, its value and the reason, for what no job file can say.
bool readJobOptions(const MakeOptions& options, runlet::AdapterContext* job, Complaint* complaint);

}  // namespace runlet_tool
