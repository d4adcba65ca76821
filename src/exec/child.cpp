#include "exec/child.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "adapter/messages.h"
#include "exec/words.h"

namespace runlet {
namespace {

// Yields only when the program could not be started: the error number of that.
int execute(const std::string& commandLine) {
  std::string line = commandLine;  // stays whole for the message
  const std::vector<char*> words = splitWords(line.data());
  // execvp does not take a missing name; to the author of the job it is a missing file.
  if (words.front() == nullptr) return ENOENT;
  execvp(words.front(), words.data());
  return errno;
}

}  // namespace

int becomeProgram(const std::string& commandLine, bool redirectStderr) {
  // The duplicate stays open in the program: it is the way back when there is no program.
  const int oldStderr = redirectStderr ? dup(STDERR_FILENO) : -1;
  if (redirectStderr) dup2(STDOUT_FILENO, STDERR_FILENO);
  const int error = execute(commandLine);
  if (redirectStderr) dup2(oldStderr, STDERR_FILENO);
  std::fprintf(stderr, cannotExecuteFormat, commandLine.c_str(), std::strerror(error));
  return error;
}

}  // namespace runlet
