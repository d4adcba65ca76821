#include "tool/report/log_end.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
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

// Returns a file in memory with the end of the log, without the rest of a line that begins before
// it; -1 with the reason in errno on failure. The log itself is not passed on: its user's file
// system could keep every process waiting that reads it.
int copyEnd(const std::string& path) {
  const OwnDescriptor log(openRegular(path));
  struct stat status {};
  if (log.number() == -1 || fstat(log.number(), &status) != 0) return -1;
  std::array<char, mostBytes> bytes;
  const off_t begin = std::max<off_t>(0, status.st_size - mostBytes);
  const auto size = static_cast<std::size_t>(status.st_size - begin);
  const ssize_t length = pread(log.number(), bytes.data(), size, begin);
  if (length == -1) return -1;
  // The file may have become shorter.
  std::string_view text(bytes.data(), static_cast<std::size_t>(length));
  const std::size_t lineEnd = text.find('\n');
  const bool isWithinLine = begin > 0 && lineEnd != std::string_view::npos;
  if (isWithinLine && lineEnd + 1 < text.size()) text.remove_prefix(lineEnd + 1);
  const int copy = memfd_create("log", MFD_CLOEXEC);
  return copy == -1 || writeAll(copy, text) == 0 ? copy : -1;
}

const char* reasonOf(int error) {
  return error == notRegular ? "not a regular file" : std::strerror(error);
}

std::string lineText(std::string_view line) {
  while (line.ends_with('\r')) line.remove_suffix(1);
  return shortened(visible(line), mostOfALine);
}

}  // namespace

LogEnd readLogEnd(const Record& record, const Attempt& attempt, std::size_t mostLines) {
  if (!record.distrust.empty()) return {"not read: " + record.distrust, {}};
  runlet::AdapterContext context;
  context.uid = record.sessions[attempt.session].uid;
  context.gid = record.sessions[attempt.session].gid;
  settleTaskUser(&context);
  const OwnDescriptor copy(doAsTaskUser(context, [&] { return copyEnd(attempt.log); }));
  if (copy.number() == -1) return {std::string("cannot be read: ") + reasonOf(errno), {}};
  std::array<char, mostBytes> bytes;
  const ssize_t length = pread(copy.number(), bytes.data(), bytes.size(), 0);
  const std::string_view text(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  const std::vector<std::string_view> lines = split('\n', text);
  const auto count = static_cast<std::ptrdiff_t>(std::min(lines.size(), mostLines));
  LogEnd end;
  std::transform(lines.end() - count, lines.end(), std::back_inserter(end.lines), lineText);
  return end;
}

}  // namespace runlet_tool
