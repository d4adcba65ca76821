#include "tool/batch/task_user.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <span>
#include <thread>

#include "tool/batch/task_rights.h"
#include "tool/system/signals.h"
#include "tool/system/sockets.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::notGiven;

// "user 1001 and group 100"; without the user if it is not given.
std::string idsText(std::int32_t uid, std::int32_t gid) {
  std::string text;
  if (uid != notGiven) text.append("user ").append(std::to_string(uid)).append(" and ");
  return text.append("group ").append(std::to_string(gid));
}

bool becomeTaskUser(const AdapterContext& context) {
  leaveNoCore();
  const auto user = static_cast<uid_t>(context.uid);
  // With the groups that the task gets, too.
  const bool isSwitched =
      setGroupsOf(user) == 0 && setgid(static_cast<gid_t>(context.gid)) == 0 && setuid(user) == 0;
  if (!isSwitched) return false;
  leaveNoCore();
  errno = EPERM;  // unless the ids and capabilities are as they should be
  return keepsNothing({context.gid, context.uid, "", 0});
}

// Whether the user of the tasks has other rights than this process.
bool hasOtherRights(const AdapterContext& context) {
  const bool isSameGroup = static_cast<gid_t>(context.gid) == getegid();
  return isOfAnother(context.uid) || (geteuid() == 0 && !isSameGroup);
}

int doWithoutMask(const std::function<int()>& work) {
  const mode_t before = umask(0);
  const int descriptor = work();
  umask(before);
  return descriptor;
}

// What the child sends after the work, along with the descriptor if there is one.
struct WorkResult {
  int error = 0;
};

void sendAnswer(int socket, int descriptor, int error) {
  const WorkResult result{error};
  const std::span<const int> none;
  sendMessage(socket, &result, sizeof result, error == 0 ? std::span(&descriptor, 1) : none);
}

// False with the reason in errno if that takes too long or this process is asked to end: the user
// can stop the child, and a folder may be on a server that does not respond.
bool awaitAnswer(int socket) {
  constexpr int slice = 100;  // milliseconds
  pollfd event{socket, POLLIN, 0};
  for (int left = 30'000; poll(&event, 1, slice) <= 0; left -= slice) {
    errno = ETIMEDOUT;
    if (left <= 0 || isStopSignalPending()) return false;
  }
  return true;
}

// Kills the child, which its user may have stopped. If it hangs in a file system of that user, it
// does not end even then, and is reaped later along with other children.
void endChild(pid_t child) {
  kill(child, SIGKILL);
  using std::chrono::microseconds;
  constexpr microseconds longest = std::chrono::seconds(2);
  for (microseconds pause(20); pause < longest && waitpid(child, nullptr, WNOHANG) == 0;
       pause *= 2) {
    std::this_thread::sleep_for(pause);
  }
}

// Returns the descriptor; -1 with the reason in errno, EIO if the child ended without an answer.
int receiveAnswer(int socket) {
  WorkResult result;
  int descriptor = -1;
  const bool isThere = receiveMessage(socket, &result, sizeof result, std::span(&descriptor, 1));
  errno = isThere && result.error != 0 ? result.error : EIO;
  return descriptor;
}

// noexcept: this process is a copy of its parent, whose exception handlers must not run here.
[[noreturn]] void workInChild(int socket, const AdapterContext& context,
                              const std::function<int()>& work) noexcept {
  // The work must not be able to use the starter's terminal, folder or files.
  setsid();
  constexpr int kept = STDERR_FILENO + 1;
  if (chdir("/") != 0 || dup2(socket, kept) == -1) _exit(EXIT_FAILURE);
  closefrom(kept + 1);
  const int descriptor = becomeTaskUser(context) ? doWithoutMask(work) : -1;
  sendAnswer(kept, descriptor, descriptor == -1 ? errno : 0);
  _exit(EXIT_SUCCESS);
}

}  // namespace

std::string settleTaskUser(AdapterContext* context) {
  if (geteuid() == 0 || context->gid == notGiven) return "";
  const auto uid = static_cast<std::int32_t>(geteuid());
  const auto gid = static_cast<std::int32_t>(getegid());
  const bool isSame = context->gid == gid && (context->uid == notGiven || context->uid == uid);
  const std::string wanted = idsText(context->uid, context->gid);
  context->uid = uid;
  context->gid = gid;
  if (isSame) return "";
  return idsText(uid, gid) + " instead of the job's " + wanted + ": only root can switch";
}

int doAsTaskUser(const AdapterContext& context, const std::function<int()>& work) {
  if (!hasOtherRights(context)) return doWithoutMask(work);
  Sockets sockets;
  int error = makeSockets(SOCK_SEQPACKET, &sockets);
  int descriptor = -1;
  const pid_t child = error == 0 ? fork() : -1;
  if (child == 0) workInChild(sockets.theirs, context, work);
  if (error == 0 && child == -1) error = errno;
  close(sockets.theirs);
  if (child != -1) {
    if (awaitAnswer(sockets.ours)) descriptor = receiveAnswer(sockets.ours);
    error = errno;
    endChild(child);
  }
  close(sockets.ours);
  errno = error;
  return descriptor;
}

}  // namespace runlet_tool
