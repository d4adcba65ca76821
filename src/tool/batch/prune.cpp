#include "tool/batch/prune.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <set>
#include <vector>

#include "adapter/context.h"
#include "tool/batch/task_rights.h"
#include "tool/batch/task_user.h"
#include "tool/system/files.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

bool isGone(int error) {
  return error == ENOENT || error == ENOTDIR;
}

// Logs that could not be removed, and why the first of them could not, as an error number. Passed
// between processes.
struct KeptLogs {
  std::size_t count = 0;
  int error = 0;

  void add(std::size_t more, int reason) {
    if (count == 0) error = reason;
    count += more;
  }
};

std::vector<std::string> logsOf(const Record& record, std::size_t session) {
  std::vector<std::string> logs;
  for (const Attempt& attempt : record.attempts) {
    if (attempt.session == session && !attempt.log.empty()) logs.push_back(attempt.log);
  }
  return logs;
}

// Returns a file in memory with the KeptLogs; -1 with the reason in errno on failure, which is the
// first log that cannot be removed unless `goesOn`.
int removeLogs(const std::vector<std::string>& logs, bool goesOn) {
  std::set<std::string> folders;
  KeptLogs remaining;
  for (const std::string& log : logs) {
    if (unlink(log.c_str()) != 0 && !isGone(errno)) {
      if (!goesOn) return -1;
      remaining.add(1, errno);
    }
    folders.insert(log.substr(0, log.rfind('/')));
  }
  // Not if anything else is in them, such as logs of another session.
  for (const std::string& folder : folders) rmdir(folder.c_str());
  const int answer = memfd_create("remaining", MFD_CLOEXEC);
  return write(answer, &remaining, sizeof remaining) == sizeof remaining ? answer : -1;
}

// The same for all logs of a session. Returns 0, or the error number on failure.
int removeLogsOf(const Record& record, std::size_t session, KeptLogs* remaining) {
  const std::vector<std::string> logs = logsOf(record, session);
  if (logs.empty()) return 0;
  runlet::AdapterContext context;
  context.uid = record.sessions[session].uid;
  context.gid = record.sessions[session].gid;
  settleTaskUser(&context);
  const bool isOther = isOfAnother(context.uid);
  const OwnDescriptor answer(doAsTaskUser(context, [&] { return removeLogs(logs, isOther); }));
  const int error = errno;
  KeptLogs told;
  const bool isDone = pread(answer.number(), &told, sizeof told, 0) == sizeof told;
  if (!isDone && !isOther) return error;
  // The other user can also stop or kill the process.
  if (!isDone) told.add(logs.size(), error);
  remaining->add(told.count, told.error);
  return 0;
}

}  // namespace

std::string removeBatch(const Record& record, const std::string& path, std::string* remaining) {
  KeptLogs all;
  for (std::size_t i = 0; i < record.sessions.size(); ++i) {
    const int error = removeLogsOf(record, i, &all);
    if (error != 0) return std::string("cannot remove its logs: ") + std::strerror(error);
  }
  const std::string text =
      quantity(all.count, "log") + " could not be removed: " + std::strerror(all.error);
  *remaining = all.count > 0 ? text : "";
  if (unlink(path.c_str()) == 0) return "";
  return std::string("cannot remove it: ") + std::strerror(errno);
}

}  // namespace runlet_tool
