#include "tool/batch/prune.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>
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

// Logs that could not be removed, and why the first of them could not.
struct KeptLogs {
  std::size_t count = 0;
  std::string reason;

  void add(std::size_t more, const std::string& why) {
    if (count == 0) reason = why;
    count += more;
  }
};

// As it is passed between processes.
std::string packed(const KeptLogs& logs) {
  return std::string(reinterpret_cast<const char*>(&logs.count), sizeof logs.count) + logs.reason;
}

// False if `text` is none.
bool unpack(const std::string& text, KeptLogs* logs) {
  if (text.size() < sizeof logs->count) return false;
  std::memcpy(&logs->count, text.data(), sizeof logs->count);
  logs->reason = text.substr(sizeof logs->count);
  return true;
}

std::vector<std::string> logsOf(const Record& record, std::size_t session) {
  std::vector<std::string> logs;
  for (const Attempt& attempt : record.attempts) {
    if (attempt.session == session && !attempt.log.empty()) logs.push_back(attempt.log);
  }
  return logs;
}

using Names = std::vector<std::string>;

// Removes the logs of these names in the folder, and the folder itself if it is then empty. Not if
// the folder must not be used: then it is not the one where they are. Returns 0; unless `goesOn`,
// the error number for the first log that cannot be removed.
int removeFrom(const std::string& folder, const Names& names, bool goesOn, KeptLogs* remaining) {
  std::string refusal;
  const OwnDescriptor opened(openOwnFolder(folder, "their folder", &refusal));
  const int error = opened.number() == -1 ? errno : 0;
  if (!refusal.empty()) remaining->add(names.size(), refusal);
  if (!refusal.empty() || isGone(error)) return 0;
  for (const std::string& name : names) {
    if (error == 0 && (unlinkat(opened.number(), name.c_str(), 0) == 0 || isGone(errno))) continue;
    if (!goesOn) return error == 0 ? errno : error;
    remaining->add(1, std::strerror(error == 0 ? errno : error));
  }
  // Not if anything else is in it, such as logs of another session.
  rmdir(folder.c_str());
  return 0;
}

// Returns a file in memory with the KeptLogs; -1 with the reason in errno on failure, which is the
// first log that cannot be removed unless `goesOn`.
int removeLogs(const std::vector<std::string>& logs, bool goesOn) {
  std::map<std::string, Names> byFolder;
  for (const std::string& log : logs) {
    const std::size_t nameBegin = log.rfind('/') + 1;
    byFolder[log.substr(0, nameBegin)].push_back(log.substr(nameBegin));
  }
  KeptLogs remaining;
  for (const auto& [folder, names] : byFolder) {
    errno = removeFrom(folder, names, goesOn, &remaining);
    if (errno != 0) return -1;
  }
  return textInMemory(packed(remaining));
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
  const bool isDone = unpack(textOfMemory(answer.number()), &told);
  if (!isDone && !isOther) return error;
  // The other user can also stop or kill the process.
  if (!isDone) told.add(logs.size(), std::strerror(error));
  remaining->add(told.count, told.reason);
  return 0;
}

}  // namespace

std::string removeBatch(const Record& record, const std::string& path, std::string* remaining) {
  KeptLogs all;
  for (std::size_t i = 0; i < record.sessions.size(); ++i) {
    const int error = removeLogsOf(record, i, &all);
    if (error != 0) return std::string("cannot remove its logs: ") + std::strerror(error);
  }
  const std::string text = quantity(all.count, "log") + " could not be removed: " + all.reason;
  *remaining = all.count > 0 ? text : "";
  if (unlink(path.c_str()) == 0) return "";
  return std::string("cannot remove it: ") + std::strerror(errno);
}

}  // namespace runlet_tool
