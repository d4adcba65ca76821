#include "exec/child.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "adapter/messages.h"
#include "exec/words.h"

namespace runlet {
namespace {

// Returns only if the program could not be executed, with the error number.
int execute(const std::string& commandLine) {
  std::string line = commandLine;  // stays whole for the message
  const std::vector<char*> words = splitWords(line.data());
  // execvp does not accept a null name; to the author of the job it is a missing file.
  if (words.front() == nullptr) return ENOENT;
  execvp(words.front(), words.data());
  return errno;
}

// False with the reason in errno. A closed standard output does not prevent a task from running:
// there is nothing to join.
bool joinStderr() {
  return dup2(STDOUT_FILENO, STDERR_FILENO) != -1 || errno == EBADF;
}

// Saves standard error for the case that the program cannot be executed; -1 if no descriptor is
// free.
int duplicateStderr(OldStderr old) {
  if (old == OldStderr::stays) return dup(STDERR_FILENO);
  return fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
}

}  // namespace

int becomeProgram(const std::string& commandLine, bool redirectStderr, OldStderr old) {
  const int oldStderr = redirectStderr ? duplicateStderr(old) : -1;
  const bool isJoined = !redirectStderr || joinStderr();
  const int error = isJoined ? execute(commandLine) : errno;
  if (redirectStderr) dup2(oldStderr, STDERR_FILENO);
  std::fprintf(stderr, cannotExecuteFormat, commandLine.c_str(), std::strerror(error));
  return error;
}

}  // namespace runlet
