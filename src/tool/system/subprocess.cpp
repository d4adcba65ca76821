#include "tool/system/subprocess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tool/system/files.h"
#include "tool/system/signals.h"

namespace runlet_tool {
namespace {

// A file in memory that becomes a standard stream of the program.
class Stream {
 public:
  explicit Stream(std::string_view text)
      : file_(text),
        descriptor_(aboveStreams(open(file_.path().c_str(), O_RDWR | O_CLOEXEC))),
        error_(descriptor_ == -1 ? errno : 0) {}
  ~Stream() {
    if (descriptor_ != -1) close(descriptor_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  int error() const {
    return file_.error() != 0 ? file_.error() : error_;
  }

  int descriptor() const {
    return descriptor_;
  }

  // Appends the content of the file. Returns 0, or the error number if it is incomplete.
  int read(std::string* text) const {
    char buffer[4096];
    ssize_t count = 0;
    off_t place = 0;
    while ((count = pread(descriptor_, buffer, sizeof buffer, place)) > 0) {
      text->append(buffer, static_cast<std::size_t>(count));
      place += count;
    }
    return count == 0 ? 0 : errno;
  }

 private:
  MemoryFile file_;
  int descriptor_;
  int error_;
};

// In the form that execve takes. The pointers are valid while `texts` is unchanged.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// Returns 0, or the error number.
int start(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
          const posix_spawn_file_actions_t& actions, pid_t* pid) {
  return posix_spawnp(pid, arguments.front().c_str(), &actions, nullptr, pointers(arguments).data(),
                      pointers(environment).data());
}

// Returns 0, or the error number if the wait failed.
int waitFor(pid_t pid, int* status) {
  pid_t ended = -1;
  do {
    ended = waitpid(pid, status, 0);
  } while (ended == -1 && errno == EINTR);
  return ended == pid ? 0 : errno;
}

}  // namespace

ProgramResult runSubprocess(const std::vector<std::string>& arguments, std::string_view input,
                            const std::vector<std::string>& environment) {
  const Stream streams[] = {Stream(input), Stream(""), Stream("")};
  const DefaultSigchld children;
  ProgramResult result;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int i = 0; i < 3 && result.startError == 0; ++i) {
    result.startError = streams[i].error();
    if (result.startError != 0) break;
    result.startError = posix_spawn_file_actions_adddup2(&actions, streams[i].descriptor(), i);
  }
  pid_t pid = -1;
  if (result.startError == 0) result.startError = start(arguments, environment, actions, &pid);
  posix_spawn_file_actions_destroy(&actions);
  if (result.startError != 0) return result;
  result.answerError = waitFor(pid, &result.waitStatus);
  const int readError = streams[1].read(&result.output);
  if (result.answerError == 0) result.answerError = readError;
  streams[2].read(&result.error);
  return result;
}

}  // namespace runlet_tool
