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

// A line that fits into `columns`: `what`, a bar if there is room for one, and `details`. Where
// these consist of parts with ", " between them, those that do not fit are left out.
std::string progressLine(const std::string& what, std::size_t done, std::size_t total,
                         const std::string& details, std::size_t columns);

// A progress bar on standard error, if that is a terminal, shown after the work has taken over a
// second and erased at the end. It fits into the terminal's current width. Before anything else is
// written to the terminal, it must be erased.
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
    if (isDue()) draw(done, percentage(done));
  }

  // Draws the bar with `details` after it instead of the percentage. Only if isDue().
  void draw(std::size_t done, const std::string& details);

  // Whether there may be a bar, and it is time to draw it.
  bool isDue() const {
    return isTerminal_ && Clock::now() >= next_;
  }

  // Erases the bar until it is drawn again.
  void erase();

  // Whether there may be a bar.
  bool isOnTerminal() const {
    return isTerminal_;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t stepsPerLook = 256;

  std::string percentage(std::size_t done) const;

  std::string what_;
  std::size_t total_;
  bool isTerminal_;
  bool isShown_ = false;
  Clock::time_point next_;  // when to draw the bar again
};

}  // namespace runlet_tool
