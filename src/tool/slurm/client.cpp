#include "tool/slurm/client.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tool/record/ends.h"
#include "tool/system/subprocess.h"
#include "tool/text/characters.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

using Words = std::vector<std::string>;

constexpr std::int64_t defaultMaxArraySize = 1001;

// Variables that would filter the output of a program.
struct Unwanted {
  std::string_view program;
  std::string_view beginning;
};
constexpr Unwanted unwanted[] = {{"squeue", "SQUEUE_"},
                                 {"sacct", "SACCT_"},
                                 {"sacct", "SLURM_BITSTR_LEN="},
                                 {"scancel", "SCANCEL_"}};

// Otherwise sacct lists only the first few of the elements that have not been started.
constexpr char withAllElements[] = "SLURM_BITSTR_LEN=0";

bool isWanted(std::string_view variable, std::string_view program) {
  return std::none_of(std::begin(unwanted), std::end(unwanted), [=](const Unwanted& row) {
    return row.program == program && variable.starts_with(row.beginning);
  });
}

Words environmentFor(std::string_view program) {
  Words environment;
  if (program == "sacct") environment.emplace_back(withAllElements);
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (isWanted(*variable, program)) environment.emplace_back(*variable);
  }
  return environment;
}

ProgramResult runSlurm(const Words& arguments) {
  return runSubprocess(arguments, "", environmentFor(arguments.front()));
}

ProgramResult runSbatch(const SbatchCommand& command) {
  const MaskForNewFiles mask(command.mask);
  return runSubprocess(command.arguments, command.script, command.environment);
}

// Why a program failed, in one line.
std::string failureOf(const std::string& program, const ProgramResult& result) {
  if (result.startError != 0) {
    return "cannot run " + program + ": " + std::strerror(result.startError);
  }
  if (result.answerError != 0) {
    return "cannot get the result of " + program + ": " + std::strerror(result.answerError);
  }
  const std::string text = visible(result.error.substr(0, result.error.find('\n')));
  return text.empty() ? program + " " + describe(endOfStatus(result.waitStatus)) : text;
}

bool hasSucceeded(const ProgramResult& result) {
  return result.startError == 0 && result.answerError == 0 && result.waitStatus == 0;
}

bool hasSaid(const ProgramResult& result, std::string_view text) {
  return result.error.find(text) != std::string::npos;
}

void passOn(const std::string& error) {
  const std::string text = visibleLines(error);
  std::fwrite(text.data(), 1, text.size(), stderr);
}

// Why sbatch failed. Its standard error has already been passed on.
std::string complaintOf(const ProgramResult& result) {
  if (result.startError != 0 || result.answerError != 0) return failureOf("sbatch", result);
  if (result.waitStatus != 0) return "sbatch " + describe(endOfStatus(result.waitStatus));
  std::string text = "unexpected output from sbatch:";
  appendShellWord(result.output, &text);
  return text;
}

// If sbatch exits with a failure, it has queued nothing.
bool mayHaveQueued(const ProgramResult& result) {
  const bool hasRefused = result.answerError == 0 && WIFEXITED(result.waitStatus) &&
                          WEXITSTATUS(result.waitStatus) != 0;
  return result.startError == 0 && !hasRefused;
}

std::string whereToLook(const SbatchCommand& command) {
  std::string text =
      "an array may have been queued nevertheless; before submitting again, look for " +
      command.comment + " in: squeue --Format=ArrayJobID,Comment:200";
  appendShellWord("--name=" + command.name, &text);
  return text;
}

void addCluster(const ArrayId& array, Words* arguments) {
  if (!array.cluster.empty()) arguments->push_back("--clusters=" + array.cluster);
}

std::string numbersOf(const std::vector<ArrayId>& arrays) {
  std::string text;
  for (const ArrayId& array : arrays) text.append(text.empty() ? "" : ",").append(array.number);
  return text;
}

// The reply of a program that is asked about arrays.
struct Answer {
  std::string output;
  std::string failure;  // why there is no output; empty = there is
};

Answer answerOf(const std::string& program, const ProgramResult& result) {
  if (hasSucceeded(result)) return {result.output, ""};
  return {"", failureOf(program, result)};
}

ProgramResult runFor(const std::vector<ArrayId>& arrays, Words arguments) {
  addCluster(arrays.front(), &arguments);
  return runSlurm(arguments);
}

// If squeue knows none of the arrays, that is an answer, whatever its exit status.
Answer queue(const std::vector<ArrayId>& arrays, const std::string& columns) {
  const ProgramResult result = runFor(
      arrays, {"squeue", "-h", "-r", "--states=all", "-j", numbersOf(arrays), "-O", columns});
  return hasSaid(result, "Invalid job id") ? Answer{} : answerOf("squeue", result);
}

// A cluster without accounting knows no elements there.
Answer accounts(const std::vector<ArrayId>& arrays, const std::string& columns) {
  const ProgramResult result =
      runFor(arrays, {"sacct", "-n", "-X", "-P", "-j", numbersOf(arrays), "-o", columns});
  const bool isMissing = result.startError == ENOENT || result.startError == EACCES;
  const bool isDisabled = hasSaid(result, "accounting storage is disabled");
  return isMissing || isDisabled ? Answer{} : answerOf("sacct", result);
}

// Nothing before the comment comes from a user.
std::optional<ArrayOrigin> originInCommand(std::string_view line) {
  constexpr std::string_view beginning = "sbatch --parsable --comment=";
  if (!line.starts_with(beginning)) return std::nullopt;
  return readComment(line.substr(beginning.size()));
}

}  // namespace

void saySubmit(const std::string& text) {
  std::fprintf(stderr, "runlet-job: submit: %s\n", text.c_str());
}

std::int64_t askMaxArraySize() {
  const ProgramResult result = runSlurm({"scontrol", "show", "config"});
  return readMaxArraySize(result.output).value_or(defaultMaxArraySize);
}

Submission submitArray(const SbatchCommand& command) {
  const ProgramResult result = runSbatch(command);
  passOn(result.error);
  const std::optional<ArrayId> id = readReply(result.output);
  const bool isSound = hasSucceeded(result) && id;
  if (!isSound) saySubmit(complaintOf(result));
  if (!id && mayHaveQueued(result)) saySubmit(whereToLook(command));
  return {id, isSound};
}

bool cancelArray(const ArrayId& array) {
  Words arguments = {"scancel", array.number};
  addCluster(array, &arguments);
  const ProgramResult result = runSlurm(arguments);
  if (hasSucceeded(result)) return true;
  saySubmit("cannot cancel array " + array.number + ": " + failureOf("scancel", result));
  return false;
}

std::string askQueue(const std::vector<ArrayId>& arrays, ElementStates* states) {
  const Answer answer = queue(arrays, "ArrayJobID:20,ArrayTaskID:20,State:20,exit_code:20");
  readQueue(answer.output, states);
  return answer.failure;
}

std::string askAccounts(const std::vector<ArrayId>& arrays, ElementStates* states) {
  const Answer answer = accounts(arrays, "JobID,State,ExitCode");
  readAccounts(answer.output, states);
  return answer.failure;
}

std::string askOrigin(const ArrayId& array, ArrayOrigin* origin) {
  Answer answer = queue({array}, "Comment:200");
  std::optional<ArrayOrigin> found = readComment(answer.output);
  if (answer.output.empty() && answer.failure.empty()) {
    answer = accounts({array}, "SubmitLine");
    found = originInCommand(answer.output);
  }
  if (!answer.failure.empty()) return answer.failure;
  if (answer.output.empty()) return "Slurm no longer knows array " + array.number;
  if (!found) return "array " + array.number + " was not submitted by runlet-job";
  *origin = *found;
  return "";
}

}  // namespace runlet_tool
