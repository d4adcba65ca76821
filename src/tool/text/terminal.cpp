#include "tool/text/terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace runlet_tool {
namespace {

constexpr auto patience = std::chrono::seconds(1);
constexpr auto pause = std::chrono::milliseconds(100);
constexpr std::size_t barWidth = 40;

// In the order of Colour.
constexpr const char* codes[] = {"", "\033[1;31m", "\033[1;33m", "\033[1;36m", "\033[1;32m"};

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
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

Progress::Progress(std::string what, std::size_t total)
    : what_(std::move(what)),
      total_(total),
      isTerminal_(total > 0 && isatty(STDERR_FILENO) == 1),
      next_(Clock::now() + patience) {}

Progress::~Progress() {
  if (isShown_) std::fputs("\r\033[K", stderr);
}

void Progress::look(std::size_t done) {
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + pause;
  isShown_ = true;
  const std::size_t filled = barWidth * done / total_;
  const std::string bar = std::string(filled, '#') + std::string(barWidth - filled, ' ');
  std::fprintf(stderr, "\r%s [%s] %zu%%", what_.c_str(), bar.c_str(), 100 * done / total_);
}

}  // namespace runlet_tool
