#include "tool/make/tasks.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "job/fill_in.h"
#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// Whether it is a device, which may be endless or have side effects when read. Terminals are
// allowed: tasks may be typed.
bool isDevice(std::FILE* file) {
  struct stat status {};
  if (fstat(fileno(file), &status) != 0 || isatty(fileno(file)) == 1) return false;
  return S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
}

// Reads the file to its end, or up to a little more than the limit. Returns 0, or the error number.
int readWhole(std::FILE* file, std::string* text) {
  char piece[65536];
  // After end of file on a terminal, another read would wait for more input.
  while (std::feof(file) == 0 && std::ferror(file) == 0 && text->size() <= maxTaskFileSize) {
    text->append(piece, std::fread(piece, 1, sizeof piece, file));
  }
  return std::ferror(file) == 0 ? 0 : errno;
}

// Returns why the file at `path` cannot be read; empty on success.
std::string readText(const std::string& path, std::string* text) {
  const File file(std::fopen(path.c_str(), "rbe"), std::fclose);
  if (file == nullptr) return std::strerror(errno);
  if (isDevice(file.get())) return "a device; expected a file or a pipe";
  const int error = readWhole(file.get(), text);
  if (error != 0) return std::strerror(error);
  return text->size() > maxTaskFileSize ? "larger than 128 MiB, the limit for a job file" : "";
}

// Removes the first line from `*text` and returns it without its line ending.
std::string takeLine(std::string_view* text) {
  const std::size_t end = text->find('\n');
  std::string_view line = text->substr(0, end);
  text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
  if (end != std::string_view::npos && line.ends_with('\r')) line.remove_suffix(1);
  return std::string(line);
}

bool appendTaskLine(const std::string& place, const std::string& line, runlet::StringList* tasks,
                    Complaint* complaint) {
  const std::string obstacle = taskObstacle(line);
  if (!obstacle.empty()) return complain(place, line, obstacle, complaint);
  tasks->push_back(line);
  return true;
}

bool appendLines(const std::string& path, std::string_view text, runlet::StringList* tasks,
                 Complaint* complaint) {
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  if (text.empty()) return complain("--tasks", path, "the file is empty", complaint);
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::string place = visible(path) + ":" + std::to_string(number) + ":";
    if (!appendTaskLine(place, takeLine(&text), tasks, complaint)) return false;
  }
  return true;
}

}  // namespace

std::string taskObstacle(std::string_view entry) {
  if (entry.empty()) return "empty line";
  if (entry.ends_with('\t')) return "the last field is empty and would be read as \"Undefined\"";
  if (entry.size() >= runlet::maxLookupLength) {
    return std::to_string(entry.size()) + " bytes; the limit is 1999";
  }
  if (entry.find('\r') != std::string_view::npos) return "CR inside the line";
  return xmlObstacle(entry);
}

bool readTaskFile(const std::string& path, runlet::StringList* tasks, Complaint* complaint) {
  std::string text;
  const std::string reason = readText(path, &text);
  if (reason.empty()) return appendLines(path, text, tasks, complaint);
  complaint->status = exitUnreadable;
  return complain("--tasks", path, reason, complaint);
}

}  // namespace runlet_tool
