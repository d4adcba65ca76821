#include "mounts.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

namespace runlet_test {

bool enterOwnMounts() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool mayMount() {
  const pid_t pid = fork();
  if (pid == 0) _exit(enterOwnMounts() ? 0 : 1);
  int status = -1;
  return waitpid(pid, &status, 0) == pid && status == 0;
}

}  // namespace runlet_test
