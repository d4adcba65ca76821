// Standard output, colours and progress bars.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace runlet_tool {

// Writes to standard output. Errors are checked once, at the end of the program.
inline void put(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// Whether output to `stream` may have colours: it is a terminal and not a dumb one, and NO_COLOR is
// not set.
bool wantsColour(std::FILE* stream);

enum class Colour { none, red, yellow, cyan, green };

// `text` in that colour, if `wanted`.
std::string coloured(const std::string& text, Colour colour, bool wanted);

// A progress bar on standard error, if that is a terminal, shown after the work has taken over a
// second and erased at the end. Nothing else may be written to the terminal meanwhile.
class Progress {
 public:
  // `what` is shown before the bar; `total` is the number of steps, 0 = no bar.
  Progress(std::string what, std::size_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Called for every step, with the number of steps done.
  void show(std::size_t done) {
    if (done % stepsPerLook == 0) showNow(done);
  }

  // The same for slow steps, or when only time has passed.
  void showNow(std::size_t done) {
    if (isTerminal_) look(done);
  }

  // Whether there may be a bar.
  bool isOnTerminal() const {
    return isTerminal_;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t stepsPerLook = 256;

  void look(std::size_t done);

  std::string what_;
  std::size_t total_;
  bool isTerminal_;
  bool isShown_ = false;
  Clock::time_point next_;  // when to draw the bar again
};

}  // namespace runlet_tool
