#include "tool/run/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace runlet_tool {
namespace {

// What is done to the descriptors in the new process.
class Descriptors {
 public:
  explicit Descriptors(int output) {
    posix_spawn_file_actions_init(&actions_);
    error_ = posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    if (error_ == 0) error_ = posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO);
    // Last: where standard input was closed, `output` may be its number.
    if (error_ == 0) {
      error_ = posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
  }
  ~Descriptors() {
    posix_spawn_file_actions_destroy(&actions_);
  }
  Descriptors(const Descriptors&) = delete;
  Descriptors& operator=(const Descriptors&) = delete;

  int error() const {
    return error_;
  }
  const posix_spawn_file_actions_t* actions() const {
    return &actions_;
  }

 private:
  posix_spawn_file_actions_t actions_{};
  int error_;
};

// The new process's group and mask. None of these calls can fail with what they are given here.
class Attributes {
 public:
  explicit Attributes(const sigset_t& mask) {
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setpgroup(&attributes_, 0);
    posix_spawnattr_setsigmask(&attributes_, &mask);
  }
  ~Attributes() {
    posix_spawnattr_destroy(&attributes_);
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const posix_spawnattr_t* get() const {
    return &attributes_;
  }

 private:
  posix_spawnattr_t attributes_{};
};

}  // namespace

int spawnProgram(const std::vector<std::string>& arguments, int output, const sigset_t& mask,
                 pid_t* process) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));  // which nobody writes to
  }
  argv.push_back(nullptr);
  const Descriptors descriptors(output);
  if (descriptors.error() != 0) return descriptors.error();
  const Attributes attributes(mask);
  return posix_spawn(process, argv[0], descriptors.actions(), attributes.get(), argv.data(),
                     environ);
}

}  // namespace runlet_tool
