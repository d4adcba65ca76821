#include "tool/record/write.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "tool/record/digest.h"
#include "tool/record/events.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/json.h"

namespace runlet_tool {
namespace {

constexpr std::size_t mostTasksInALine = 1000;

// An event whose texts are all UTF-8 or, if not, one character for each byte.
Json eventWith(const char* name, RecordTime time, bool inBytes) {
  Json event;
  event[eventKey] = name;
  event["time"] = time;
  if (inBytes) event["bytes"] = true;
  return event;
}

void addAttempt(const Attempt& attempt, Json* event) {
  (*event)["task"] = attempt.task;
  (*event)["attempt"] = attempt.number;
}

// A line about the tasks from position `first` on, with at most mostTasksInALine of them.
Json planOf(const Session& session, std::size_t first) {
  const std::size_t end = std::min(session.tasks.size(), first + mostTasksInALine);
  TaskNumbers numbers;
  std::string identities;
  for (std::size_t i = first; i < end; ++i) {
    numbers.add(session.tasks[i]);
    identities += hexadecimal(session.identities[i].data(), TaskIdentity().size());
  }
  Json event;
  event[eventKey] = planEvent;
  event["tasks"] = numbers.text(",");
  event["identities"] = identities;
  return event;
}

Json eventOf(const std::string& id, const Session& session) {
  const bool inBytes = !areUtf8(session.options) || !areUtf8(session.expected) ||
                       !isUtf8(session.job) || !isUtf8(session.appPath) ||
                       !isUtf8(session.folder) || !isUtf8(session.process.host);
  const JsonStrings string(inBytes);
  Json event = eventWith(sessionEvent, session.begin, inBytes);
  event["version"] = recordVersion;
  event["id"] = id;
  event["tool"] = session.toolVersion;
  event["verb"] = session.verb;
  event["options"] = string.list(session.options);
  event["job"] = string(session.job);
  event["application"] = string(session.appPath);
  event["sha256"] = session.digest;
  event["folder"] = string(session.folder);
  event["uid"] = session.uid;
  event["gid"] = session.gid;
  event["host"] = string(session.process.host);
  event["boot"] = session.process.boot;
  event["pidSpace"] = session.process.space;
  event["pid"] = session.process.process;
  event["pidStart"] = session.process.start;
  event["atATime"] = session.atATime;
  event["timeLimit"] = session.timeLimit;
  event["expect"] = string.list(session.expected);
  event["count"] = session.tasks.size();
  event["whole"] = session.isWhole;
  return event;
}

Json startOf(const Attempt& attempt) {
  const bool inBytes = !areUtf8(attempt.words) || !isUtf8(attempt.log);
  const JsonStrings string(inBytes);
  Json event = eventWith(startEvent, attempt.begin, inBytes);
  addAttempt(attempt, &event);
  event["argv"] = string.list(attempt.words);
  event["log"] = string(attempt.log);
  event["pid"] = attempt.process;
  event["pidStart"] = attempt.processStart;
  return event;
}

Json endOf(const Attempt& attempt) {
  const TaskEnd& result = attempt.result;
  const bool inBytes = !isUtf8(result.word);
  Json event = eventWith(endEvent, *attempt.end, inBytes);
  addAttempt(attempt, &event);
  event["end"] = endName(result.ending);
  if (result.ending == Ending::failed) event["code"] = result.number;
  if (result.ending == Ending::killed) event["signal"] = result.number;
  if (!result.word.empty()) event["reason"] = JsonStrings(inBytes)(result.word);
  if (attempt.process == 0) return event;
  event["wall"] = attempt.wall;
  event["cpu"] = attempt.cpu;
  event["peakMemory"] = attempt.peakMemory;
  if (attempt.log.empty()) event["logRemoved"] = true;
  if (attempt.isDiskFull) event["diskFull"] = true;
  return event;
}

}  // namespace

RecordWriter::RecordWriter(std::string id, Mirror mirror)
    : id_(std::move(id)), mirror_(std::move(mirror)) {}

int RecordWriter::create(const OutputPlace& place) {
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
  file_ =
      OwnDescriptor(openat(place.folder.number(), place.name.c_str(), flags, S_IRUSR | S_IWUSR));
  return file_.number() == -1 ? errno : 0;
}

int RecordWriter::append(const std::string& path, const FileId& file) {
  file_ = OwnDescriptor(openRegularFile(path, O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK));
  if (file_.number() == -1 && errno == notRegular) return ESTALE;
  struct stat status {};
  if (file_.number() == -1 || fstat(file_.number(), &status) != 0) return errno;
  if (FileId{status.st_dev, status.st_ino} != file) return ESTALE;
  // An incomplete last line, left by a writer that was killed, must not continue in the next one.
  const off_t size = lseek(file_.number(), 0, SEEK_END);
  char last = '\n';
  if (size > 0 && pread(file_.number(), &last, 1, size - 1) == -1) return errno;
  return last == '\n' ? 0 : writeAll(file_.number(), "\n");
}

int RecordWriter::beginSession(const Session& session) {
  const off_t size = lseek(file_.number(), 0, SEEK_END);
  int error = put(eventOf(id_, session));
  for (std::size_t i = 0; error == 0 && i < session.tasks.size(); i += mostTasksInALine) {
    error = put(planOf(session, i));
  }
  // Otherwise each try on a full disk would leave its lines.
  if (error != 0) cut(size);
  return error;
}

int RecordWriter::beginAttempt(const Attempt& attempt) {
  return put(startOf(attempt));
}

int RecordWriter::endAttempt(const Attempt& attempt) {
  return put(endOf(attempt));
}

int RecordWriter::endSession(const Session& session) {
  const bool inBytes = !isUtf8(session.stopReason);
  Json event = eventWith(stopEvent, *session.end, inBytes);
  if (!session.stopReason.empty()) event["reason"] = JsonStrings(inBytes)(session.stopReason);
  return put(event);
}

void RecordWriter::cut(off_t size) {
  if (ftruncate(file_.number(), size) != 0) file_ = OwnDescriptor();
}

int RecordWriter::put(const Json& event) {
  // In ASCII, so that the line is safe in a terminal.
  const std::string line = event.dump(-1, ' ', true) + "\n";
  const off_t size = lseek(file_.number(), 0, SEEK_END);
  const int error = writeAll(file_.number(), line);
  // Nothing may follow the part of the line that has been written.
  if (error != 0) cut(size);
  if (error == 0 && mirror_) mirror_(line);
  return error;
}

}  // namespace runlet_tool
