#include "tool/make/options.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>

#include "adapter/task_range.h"
#include "job/fill_in.h"
#include "tool/make/frames.h"
#include "tool/make/tasks.h"
#include "tool/system/accounts.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

constexpr std::int32_t usualUmask = 022;

struct NumberForm {
  int base;
  std::int32_t least;
  std::int32_t most;
  const char* text;
};

constexpr NumberForm chunkForm = {10, 1, INT32_MAX, "expected a number of frames, at least 1"};
constexpr NumberForm timeoutForm = {10, 1, runlet::longestTimeout,
                                    "expected a number of minutes from 1 to 35791"};
constexpr NumberForm umaskForm = {8, 0, 0777, "expected an octal number from 0 to 777"};

// Leaves `*number` unchanged if the option is not given.
bool readNumberOption(const char* option, const std::optional<std::string>& value,
                      const NumberForm& form, std::int32_t* number, Complaint* complaint) {
  if (!value) return true;
  const char* const textEnd = value->data() + value->size();
  const auto [end, error] = std::from_chars(value->data(), textEnd, *number, form.base);
  const bool isWhole = error == std::errc() && end == textEnd;
  if (isWhole && form.least <= *number && *number <= form.most) return true;
  return complain(option, *value, form.text, complaint);
}

bool readFrames(const MakeOptions& options, runlet::AdapterContext* job, Complaint* complaint) {
  std::int32_t chunk = 1;
  if (!readNumberOption("--chunk", options.chunk, chunkForm, &chunk, complaint)) return false;
  std::string reason;
  if (appendFrameTasks(*options.frames, chunk, &job->taskList, &reason)) return true;
  return complain("--frames", *options.frames, reason, complaint);
}

bool readTaskOptions(const MakeOptions& options, runlet::AdapterContext* job,
                     Complaint* complaint) {
  if (options.frames) return readFrames(options, job, complaint);
  if (options.tasks) return readTaskFile(*options.tasks, &job->taskList, complaint);
  job->taskList.emplace_back("task");
  return true;
}

// Why a parameter of that name and value cannot be added to `names`; empty if it can.
std::string paramObstacle(const std::string& name, const std::string& value,
                          const runlet::StringList& names) {
  if (name.empty()) return "the name is empty";
  if (std::find(names.begin(), names.end(), name) != names.end()) return "the name is given twice";
  for (const std::string& text : {name, value}) {
    if (text.size() < runlet::maxLookupLength) continue;
    return std::to_string(text.size()) + " bytes; the limit is 1999";
  }
  const std::string obstacle = xmlObstacle(name);
  return obstacle.empty() ? xmlObstacle(value) : obstacle;
}

bool readParam(const std::string& param, runlet::AdapterContext* job, Complaint* complaint) {
  const std::size_t sign = param.find('=');
  if (sign == std::string::npos)
    return complain("--param", param, "expected NAME=VALUE", complaint);
  const std::string name = param.substr(0, sign);
  const std::string value = param.substr(sign + 1);
  const std::string obstacle = paramObstacle(name, value, job->paramNames);
  if (!obstacle.empty()) return complain("--param", param, obstacle, complaint);
  job->paramNames.push_back(name);
  job->paramValues.push_back(value);
  return true;
}

bool readParams(const MakeOptions& options, runlet::AdapterContext* job, Complaint* complaint) {
  return std::all_of(options.params.begin(), options.params.end(),
                     [&](const std::string& param) { return readParam(param, job, complaint); });
}

struct TextOption {
  const char* name;
  std::optional<std::string> MakeOptions::*value;
  std::string runlet::AdapterContext::*field;
};

constexpr TextOption textOptions[] = {
    {"--folder", &MakeOptions::folder, &runlet::AdapterContext::workingFolder},
    {"--logs", &MakeOptions::logs, &runlet::AdapterContext::logFolder},
    {"--outputs", &MakeOptions::outputs, &runlet::AdapterContext::outputs},
};

std::string textObstacle(const std::string& text) {
  if (text.empty()) return "it is empty";
  if (text.find_first_not_of(" \t\n\r") == std::string::npos) {
    return "white space alone would be read as empty";
  }
  return xmlObstacle(text);
}

bool readTextOptions(const MakeOptions& options, runlet::AdapterContext* job,
                     Complaint* complaint) {
  for (const TextOption& option : textOptions) {
    const std::optional<std::string>& value = options.*option.value;
    if (!value) continue;
    const std::string obstacle = textObstacle(*value);
    if (!obstacle.empty()) return complain(option.name, *value, obstacle, complaint);
    job->*option.field = *value;
  }
  return true;
}

bool readUserAndGroup(const MakeOptions& options, runlet::AdapterContext* job,
                      Complaint* complaint) {
  job->uid = static_cast<std::int32_t>(geteuid());
  job->gid = static_cast<std::int32_t>(getegid());
  if (options.user && !findUser(*options.user, &job->uid)) {
    return complain("--user", *options.user, "no such user", complaint);
  }
  if (options.group && !findGroup(*options.group, &job->gid)) {
    return complain("--group", *options.group, "no such group", complaint);
  }
  return true;
}

bool readNumberOptions(const MakeOptions& options, runlet::AdapterContext* job,
                       Complaint* complaint) {
  job->taskNameIdx = 1;
  job->taskTimeout = runlet::longestTimeout;
  job->umask = usualUmask;
  return readNumberOption("--timeout", options.timeout, timeoutForm, &job->taskTimeout,
                          complaint) &&
         readNumberOption("--umask", options.umask, umaskForm, &job->umask, complaint);
}

bool readStandardError(const MakeOptions& options, runlet::AdapterContext* job,
                       Complaint* complaint) {
  const std::string value = options.standardError.value_or("join");
  job->redirectStderr = value == "join";
  if (job->redirectStderr || value == "keep") return true;
  return complain("--stderr", value, "expected join or keep", complaint);
}

bool readCommand(const MakeOptions& options, runlet::AdapterContext* job, Complaint* complaint) {
  for (const std::string& word : options.command) {
    const std::string obstacle = xmlObstacle(word);
    if (!obstacle.empty()) return complain("COMMAND", word, obstacle, complaint);
    if (&word != &options.command.front()) job->arguments += ' ';
    job->arguments += word;
  }
  if (!job->arguments.empty()) return true;
  return complain("COMMAND", job->arguments, "it is empty", complaint);
}

constexpr bool (*steps[])(const MakeOptions& options, runlet::AdapterContext* job,
                          Complaint* complaint) = {
    readCommand,       readTextOptions, readNumberOptions, readUserAndGroup,
    readStandardError, readTaskOptions, readParams,
};

}  // namespace

bool readJobOptions(const MakeOptions& options, runlet::AdapterContext* job, Complaint* complaint) {
  return std::all_of(std::begin(steps), std::end(steps),
                     [&](const auto step) { return step(options, job, complaint); });
}

}  // namespace runlet_tool
