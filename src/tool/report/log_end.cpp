#include "tool/report/log_end.h"

#include <fcntl.h>
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

// Reads the end of the log, without the rest of a line that begins before it. Returns 0, or why it
// cannot be read as an error number.
int readEnd(int folder, const std::string& name, std::string* text) {
  const OwnDescriptor log(openRegularFile(name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, folder));
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

// The same, if the folder that it is in may be used. Returns why it cannot be read; empty if it
// can.
std::string complaintAboutEnd(const std::string& path, std::string* text) {
  const std::size_t nameBegin = path.rfind('/') + 1;
  std::string refusal;
  const OwnDescriptor folder(openOwnFolder(path.substr(0, nameBegin), "its folder", &refusal));
  if (!refusal.empty()) return refusal;
  const int error =
      folder.number() == -1 ? errno : readEnd(folder.number(), path.substr(nameBegin), text);
  return error == 0 ? "" : openFailure(error);
}

// What precedes the end of a log when it is passed between processes: the sizes of why it cannot be
// read, and of the text, which follow in this order.
struct EndHead {
  std::size_t reason = 0;
  std::size_t text = 0;
};

// Returns a file in memory with the ends of the logs; -1 with the reason in errno on failure. The
// logs themselves are not passed on: their user's file system could keep every process waiting that
// reads them.
int copyEnds(const std::vector<std::string>& paths) {
  std::string all;
  for (const std::string& path : paths) {
    std::string text;
    const std::string reason = complaintAboutEnd(path, &text);
    const EndHead head{reason.size(), text.size()};
    all.append(reinterpret_cast<const char*>(&head), sizeof head).append(reason).append(text);
  }
  return textInMemory(all);
}

std::string lineText(std::string_view line) {
  while (line.ends_with('\r')) line.remove_suffix(1);
  return shortened(visible(line), mostOfALine);
}

LogEnd endOf(std::string_view reason, std::string_view text, std::size_t mostLines) {
  if (!reason.empty()) return {"cannot be read: " + std::string(reason), {}};
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
  const std::string failure = copy.number() == -1 ? std::strerror(errno) : "";
  const std::string content = textOfMemory(copy.number());
  std::string_view rest = content;
  std::vector<LogEnd> ends;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EndHead head;
    rest.remove_prefix(rest.copy(reinterpret_cast<char*>(&head), sizeof head));
    const std::string_view reason = rest.substr(0, head.reason);
    const std::string_view text = rest.substr(reason.size(), head.text);
    rest.remove_prefix(reason.size() + text.size());
    ends.push_back(endOf(failure.empty() ? reason : failure, text, mostLines));
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
