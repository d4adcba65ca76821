#include "tool/report/log_end.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "tool/system/files.h"
#include "tool/text/characters.h"
#include "tool/text/fields.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

constexpr off_t mostBytes = 4096;
constexpr std::size_t mostOfALine = 200;  // bytes

// Returns why it cannot be read; empty on success. `*isCut`: the text does not begin with the file.
std::string readEnd(const std::string& path, std::string* text, bool* isCut) {
  const OwnDescriptor file(
      open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (file.number() == -1 || fstat(file.number(), &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "not a regular file";
  const off_t size = std::min(status.st_size, mostBytes);
  *isCut = size < status.st_size;
  text->resize(static_cast<std::size_t>(size));
  const ssize_t length = pread(file.number(), text->data(), text->size(), status.st_size - size);
  if (length == -1) return std::strerror(errno);
  text->resize(static_cast<std::size_t>(length));  // the file may have become shorter
  return {};
}

std::string lineText(std::string_view line) {
  while (line.ends_with('\r')) line.remove_suffix(1);
  return shortened(visible(line), mostOfALine);
}

}  // namespace

LogEnd readLogEnd(const std::string& path, std::size_t mostLines) {
  LogEnd end;
  std::string text;
  bool isCut = false;
  end.error = readEnd(path, &text, &isCut);
  std::vector<std::string_view> lines = split('\n', text);
  if (isCut && lines.size() > 1) lines.erase(lines.begin());  // not a whole line
  const std::size_t count = std::min(lines.size(), mostLines);
  for (auto line = lines.end() - static_cast<std::ptrdiff_t>(count); line != lines.end(); ++line) {
    end.lines.push_back(lineText(*line));
  }
  return end;
}

}  // namespace runlet_tool
