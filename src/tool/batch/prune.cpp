#include "tool/batch/prune.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "adapter/context.h"
#include "tool/batch/task_user.h"

namespace runlet_tool {
namespace {

bool isGone(int error) {
  return error == ENOENT || error == ENOTDIR;
}

// Removes the logs of one session. Returns a descriptor that means nothing; -1 with the reason in
// errno on failure.
int removeLogs(const Record& record, std::size_t session) {
  std::set<std::string> folders;
  for (const Attempt& attempt : record.attempts) {
    if (attempt.session != session || attempt.log.empty()) continue;
    if (unlink(attempt.log.c_str()) != 0 && !isGone(errno)) return -1;
    folders.insert(attempt.log.substr(0, attempt.log.rfind('/')));
  }
  // Not if anything else is in them, such as logs of another session.
  for (const std::string& folder : folders) rmdir(folder.c_str());
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

}  // namespace

std::string removeBatch(const Record& record, const std::string& path) {
  for (std::size_t i = 0; i < record.sessions.size(); ++i) {
    runlet::AdapterContext context;
    context.uid = record.sessions[i].uid;
    context.gid = record.sessions[i].gid;
    const int done = doAsTaskUser(context, [&] { return removeLogs(record, i); });
    if (done == -1) return std::string("cannot remove its logs: ") + std::strerror(errno);
    close(done);
  }
  if (unlink(path.c_str()) == 0) return "";
  return std::string("cannot remove it: ") + std::strerror(errno);
}

}  // namespace runlet_tool
