#include "tool/text/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace runlet_tool {
namespace {

constexpr auto patience = std::chrono::seconds(1);
constexpr auto pause = std::chrono::milliseconds(100);
constexpr std::size_t widestBar = 40;
constexpr std::size_t narrowestBar = 10;
constexpr std::size_t usualWidth = 80;  // of a terminal that does not know its width

// In the order of Colour.
constexpr const char* codes[] = {"", "\033[1;31m", "\033[1;33m", "\033[1;36m", "\033[1;32m"};

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

std::size_t terminalWidth() {
  winsize size{};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? size.ws_col : usualWidth;
}

}  // namespace

bool wantsColour(std::FILE* stream) {
  const char* terminal = std::getenv("TERM");
  const bool isDumb = terminal != nullptr && std::strcmp(terminal, "dumb") == 0;
  return isatty(fileno(stream)) == 1 && !isSet("NO_COLOR") && !isDumb;
}

std::string coloured(const std::string& text, Colour colour, bool wanted) {
  if (!wanted || colour == Colour::none) return text;
  return codes[static_cast<std::size_t>(colour)] + text + "\033[0m";
}

std::string progressLine(const std::string& what, std::size_t done, std::size_t total,
                         const std::string& details, std::size_t columns) {
  const std::size_t room = columns - 1;  // a full line would move the cursor to the next one
  const std::size_t others = what.size() + details.size() + std::strlen(" [] ");
  const std::size_t width = std::min(room - std::min(room, others), widestBar);
  const std::size_t filled = width * done / total;
  std::string line = what + " ";
  if (width >= narrowestBar) {
    line.append("[").append(filled, '#').append(width - filled, ' ').append("] ");
  }
  line += details;
  if (line.size() <= room) return line;
  return line.substr(0, std::min(line.rfind(", ", room), room));
}

Progress::Progress(std::string what, std::size_t total)
    : what_(std::move(what)),
      total_(total),
      isTerminal_(total > 0 && isatty(STDERR_FILENO) == 1),
      next_(Clock::now() + patience) {}

Progress::~Progress() {
  erase();
}

void Progress::erase() {
  if (isShown_) std::fputs("\r\033[K", stderr);
  isShown_ = false;
}

std::string Progress::percentage(std::size_t done) const {
  return std::to_string(100 * done / total_) + "%";
}

void Progress::draw(std::size_t done, const std::string& details) {
  next_ = Clock::now() + pause;
  isShown_ = true;
  const std::string line = progressLine(what_, done, total_, details, terminalWidth());
  std::fprintf(stderr, "\r%s\033[K", line.c_str());
}

}  // namespace runlet_tool
