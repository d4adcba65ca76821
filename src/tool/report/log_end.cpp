#include "tool/report/log_end.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>
#include <string_view>

#include "adapter/context.h"
#include "tool/batch/task_user.h"
#include "tool/system/files.h"
#include "tool/text/characters.h"
#include "tool/text/fields.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

constexpr off_t mostBytes = 4096;
constexpr std::size_t mostOfALine = 200;  // bytes

// The reason in errno for what is no regular file; opening a file never fails with it.
constexpr int notRegular = EMEDIUMTYPE;

// Returns a descriptor of the file; -1 with the reason in errno on failure.
int openRegular(const std::string& path) {
  // Opening a device may already do something, so look first, and then open what was looked at.
  const OwnDescriptor place(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (place.number() == -1 || fstat(place.number(), &status) != 0) return -1;
  errno = S_ISLNK(status.st_mode) ? ELOOP : notRegular;
  if (!S_ISREG(status.st_mode)) return -1;
  const std::string link = "/proc/self/fd/" + std::to_string(place.number());
  return open(link.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

// Reads the end of the log, without the rest of a line that begins before it. Returns 0, or why it
// cannot be read as an error number.
int readEnd(const std::string& path, std::string* text) {
  const OwnDescriptor log(openRegular(path));
  struct stat status {};
  if (log.number() == -1 || fstat(log.number(), &status) != 0) return errno;
  const off_t begin = std::max<off_t>(0, status.st_size - mostBytes);
  text->resize(static_cast<std::size_t>(status.st_size - begin));
  const ssize_t length = pread(log.number(), text->data(), text->size(), begin);
  const int error = length == -1 ? errno : 0;
  text->resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));  // may be shorter now
  const std::size_t lineEnd = text->find('\n');
  const bool isWithinLine = begin > 0 && lineEnd != std::string::npos;
  if (isWithinLine && lineEnd + 1 < text->size()) text->erase(0, lineEnd + 1);
  return error;
}

// What precedes the end of a log when it is passed between processes.
struct EndHead {
  int error = 0;  // why it cannot be read
  std::size_t size = 0;
};

// Returns a file in memory with the ends of the logs; -1 with the reason in errno on failure. The
// logs themselves are not passed on: their user's file system could keep every process waiting that
// reads them.
int copyEnds(const std::vector<std::string>& paths) {
  std::string all;
  for (const std::string& path : paths) {
    std::string text;
    EndHead head;
    head.error = readEnd(path, &text);
    head.size = text.size();
    all.append(reinterpret_cast<const char*>(&head), sizeof head).append(text);
  }
  const int copy = memfd_create("logs", MFD_CLOEXEC);
  return copy == -1 || writeAll(copy, all) == 0 ? copy : -1;
}

// The content of a file in memory; empty if there is none.
std::string contentOf(int descriptor) {
  struct stat status {};
  fstat(descriptor, &status);
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t length = pread(descriptor, content.data(), content.size(), 0);
  content.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return content;
}

const char* reasonOf(int error) {
  return error == notRegular ? "not a regular file" : std::strerror(error);
}

std::string lineText(std::string_view line) {
  while (line.ends_with('\r')) line.remove_suffix(1);
  return shortened(visible(line), mostOfALine);
}

LogEnd endOf(int error, std::string_view text, std::size_t mostLines) {
  if (error != 0) return {std::string("cannot be read: ") + reasonOf(error), {}};
  const std::vector<std::string_view> lines = split('\n', text);
  const auto count = static_cast<std::ptrdiff_t>(std::min(lines.size(), mostLines));
  LogEnd end;
  std::transform(lines.end() - count, lines.end(), std::back_inserter(end.lines), lineText);
  return end;
}

// The same for several logs of one session.
std::vector<LogEnd> endsOf(const Session& session, const std::vector<std::string>& paths,
                           std::size_t mostLines) {
  runlet::AdapterContext context;
  context.uid = session.uid;
  context.gid = session.gid;
  settleTaskUser(&context);
  const OwnDescriptor copy(doAsTaskUser(context, [&] { return copyEnds(paths); }));
  const int error = errno;
  const std::string content = contentOf(copy.number());
  std::string_view rest = content;
  std::vector<LogEnd> ends;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EndHead head{error, 0};  // if nothing was passed on
    rest.remove_prefix(rest.copy(reinterpret_cast<char*>(&head), sizeof head));
    const std::string_view text = rest.substr(0, head.size);
    rest.remove_prefix(text.size());
    ends.push_back(endOf(head.error, text, mostLines));
  }
  return ends;
}

}  // namespace

std::vector<LogEnd> readLogEnds(const Record& record, const std::vector<std::size_t>& attempts,
                                std::size_t mostLines) {
  if (!record.distrust.empty()) {
    return std::vector<LogEnd>(attempts.size(), {"not read: " + record.distrust, {}});
  }
  std::map<std::size_t, std::vector<std::size_t>> positions;  // by session
  for (std::size_t i = 0; i < attempts.size(); ++i) {
    positions[record.attempts[attempts[i]].session].push_back(i);
  }
  std::vector<LogEnd> ends(attempts.size());
  for (const auto& [session, places] : positions) {
    std::vector<std::string> paths;
    for (const std::size_t i : places) paths.push_back(record.attempts[attempts[i]].log);
    const std::vector<LogEnd> some = endsOf(record.sessions[session], paths, mostLines);
    for (std::size_t i = 0; i < places.size(); ++i) ends[places[i]] = some[i];
  }
  return ends;
}

}  // namespace runlet_tool
