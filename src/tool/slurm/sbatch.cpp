#include "tool/slurm/sbatch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "tool/batch/task_rights.h"
#include "tool/system/files.h"
#include "tool/text/format.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

// Options that runlet-job passes itself, or that would keep sbatch from printing an id.
constexpr std::string_view longNames[] = {"array", "parsable", "wrap",
                                          "wait",  "comment",  "test-only"};
constexpr std::string_view shortNames = "aW";

// Options of sbatch that take no value, so that another letter can follow in the same word.
constexpr std::string_view flags = "hHkOQRuvV";

// sbatch accepts abbreviated names.
bool isOurLongName(std::string_view name) {
  return std::any_of(std::begin(longNames), std::end(longNames),
                     [=](std::string_view ours) { return ours.starts_with(name); });
}

bool isOurs(std::string_view option) {
  if (option.starts_with("--")) return isOurLongName(option.substr(2, option.find('=') - 2));
  const std::size_t place = option.find_first_not_of(flags, 1);
  return place != std::string_view::npos &&
         shortNames.find(option[place]) != std::string_view::npos;
}

using Words = std::vector<std::string>;

// Prefixes of variables that no task gets. SBATCH_WAIT would make sbatch wait, and SLURM_UMASK
// would override the mask of the process.
constexpr std::string_view unwantedVariables[] = {"SBATCH_WAIT=", "SLURM_UMASK="};

constexpr mode_t writableByOthers = 022;
constexpr mode_t maskBits = 0777;

bool isUnwanted(std::string_view variable) {
  return std::any_of(std::begin(unwantedVariables), std::end(unwantedVariables),
                     [=](std::string_view beginning) { return variable.starts_with(beginning); });
}

Words ownEnvironment() {
  Words environment;
  for (char** next = environ; *next != nullptr; ++next) environment.emplace_back(*next);
  std::sort(environment.begin(), environment.end());
  return environment;
}

// Users' texts reach the scripts only as arguments.
constexpr char taskScript[] = R"sh(#!/bin/sh
# Each element of the array is a task. Arguments: program, job file, base [, -a, application]
program=$1 job=$2 base=$3
shift 3
exec "$program" exec "$job" --task "$((base + SLURM_ARRAY_TASK_ID))" "$@"
)sh";

constexpr char chunkScript[] = R"sh(#!/bin/sh
# Each element of the array runs up to $chunk tasks in sequence, none above the last.
# Arguments: program, job file, its hash, base, chunk, last [, -a, application]
program=$1 job=$2 hash=$3 base=$4 chunk=$5 last=$6
shift 6
first=$((base + SLURM_ARRAY_TASK_ID * chunk))
count=$((last - first + 1))
[ "$count" -le "$chunk" ] || count=$chunk
id=$hash:${SLURM_ARRAY_JOB_ID}_$SLURM_ARRAY_TASK_ID
exec "$program" run "$job" -s "$first" -n "$count" --tell-ends "$id" "$@"
)sh";

constexpr char endOfScript[] = "END";

std::string withPercentSigns(const std::string& path) {
  std::string pattern;
  for (const char c : path) pattern.append(c == '%' ? 2 : 1, c);
  return pattern;
}

std::string logPattern(const Batch& batch, const ArrayPart& part) {
  const std::string name = batch.name + (part.layout.chunk > 1 ? "-chunk-" : "-") + part.number;
  const std::string element = part.digits > 0 ? withoutLineEnd("%%%da", part.digits) : "";
  return withPercentSigns(fullPath(batch.logFolder, name)) + element + ".log";
}

std::string arrayText(const SubmitOptions& options, const ArrayPart& part) {
  const std::string text = elementsText(part.elements);
  return options.throttle ? text + "%" + std::to_string(*options.throttle) : text;
}

std::string commentOf(const Batch& batch, const ArrayPart& part) {
  return commentText({part.layout, part.elements.size(), jobHash(batch.context.jobFile)});
}

// A relative working folder is entered by the task itself.
std::string startFolder(const Batch& batch) {
  const std::string& folder = batch.context.workingFolder;
  return folder.empty() || folder.front() == '/' ? batch.folder : currentFolder();
}

void addTime(const Batch& batch, const ArrayPart& part, Words* words) {
  const std::int64_t minutes = std::int64_t{batch.context.taskTimeout} * part.layout.chunk;
  if (minutes <= 0) return;
  const std::int64_t most = std::numeric_limits<std::int32_t>::max();
  words->push_back("--time=" + std::to_string(std::min(minutes, most)));
}

// Only root may submit for others.
void addUser(const Batch& batch, Words* words) {
  const auto uid = static_cast<uid_t>(batch.context.uid);
  const auto gid = static_cast<gid_t>(batch.context.gid);
  if (geteuid() != 0 || (uid == geteuid() && gid == getegid())) return;
  words->push_back("--uid=" + std::to_string(uid));
  words->push_back("--gid=" + std::to_string(gid));
}

void addScriptArguments(const Batch& batch, const ArrayPart& part, Words* words) {
  const ArrayLayout& layout = part.layout;
  words->insert(words->end(), {ownPath(), batch.context.jobFile});
  if (layout.chunk > 1) words->push_back(jobHash(batch.context.jobFile));
  words->push_back(std::to_string(layout.base));
  if (layout.chunk > 1) {
    words->insert(words->end(), {std::to_string(layout.chunk), std::to_string(layout.last)});
  }
  if (!batch.context.appPath.empty()) words->insert(words->end(), {"-a", batch.context.appPath});
}

}  // namespace

std::string complaintAboutSbatchOption(const std::string& option) {
  if (option.size() < 2 || option.front() != '-') {
    return option +
           " is not an option; write an option and its value as one word, such as --mem=4G";
  }
  return isOurs(option) ? option + " is not allowed, since runlet-job sets it or depends on it"
                        : "";
}

std::string complaintAboutId(const std::string& id) {
  const bool isNumber = id.find_first_not_of("0123456789") == std::string::npos;
  const bool isId = isNumber && !id.empty() && id.front() != '0' && id.size() <= 10;
  return isId ? "" : id + " is not an array id";
}

Words sbatchEnvironment(const runlet::AdapterContext& context, const Words& keptNames) {
  Words environment = ownEnvironment();
  if (geteuid() == 0) {
    // Including what configures Slurm's programs, and the time zone.
    environment = userEnvironment(static_cast<uid_t>(context.uid), keptNames,
                                  {"SBATCH_", "SLURM_CLUSTERS=", "SLURM_CONF=", "TZ="});
  }
  std::erase_if(environment, isUnwanted);
  return environment;
}

mode_t sbatchMask(const runlet::AdapterContext& context) {
  return (static_cast<mode_t>(context.umask) & maskBits) | writableByOthers;
}

MaskForNewFiles::MaskForNewFiles(mode_t mask) : before_(umask(mask)) {}

MaskForNewFiles::~MaskForNewFiles() {
  umask(before_);
}

bool canNameLogs(const Batch& batch) {
  return batch.logFolder.find('\\') == std::string::npos;
}

SbatchCommand sbatchCommand(const Batch& batch, const SubmitOptions& options,
                            const ArrayPart& part) {
  Words words = {"sbatch",
                 "--parsable",
                 "--comment=" + commentOf(batch, part),
                 "--job-name=" + batch.name,
                 "--array=" + arrayText(options, part),
                 "--requeue",
                 "--open-mode=truncate",
                 "--output=" + logPattern(batch, part),
                 "--chdir=" + startFolder(batch)};
  addTime(batch, part, &words);
  if (!options.partition.empty()) words.push_back("--partition=" + options.partition);
  addUser(batch, &words);
  words.insert(words.end(), options.sbatchOptions.begin(), options.sbatchOptions.end());
  words.emplace_back("/dev/stdin");
  addScriptArguments(batch, part, &words);
  return {words,
          part.layout.chunk > 1 ? chunkScript : taskScript,
          batch.name,
          commentOf(batch, part),
          sbatchEnvironment(batch.context, options.keptVariables),
          sbatchMask(batch.context)};
}

std::string shellText(const SbatchCommand& command) {
  Words words;
  if (geteuid() == 0) {
    words = {"/usr/bin/env", "-i"};
    words.insert(words.end(), command.environment.begin(), command.environment.end());
  }
  words.insert(words.end(), command.arguments.begin(), command.arguments.end());
  std::string line;
  for (const std::string& word : words) appendShellWord(word, &line);
  return withoutLineEnd("(umask %04o", static_cast<unsigned>(command.mask)) + "\n" + line + " <<'" +
         endOfScript + "'\n" + command.script + endOfScript + "\n)\n";
}

}  // namespace runlet_tool
