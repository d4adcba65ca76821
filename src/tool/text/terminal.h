// Standard output, and what is different on a terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace runlet_tool {

// Whether it was all taken is looked at once, when the program ends.
inline void put(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// Whether what goes to `stream` may have colours: it is a terminal, and NO_COLOR is not set.
bool wantsColour(std::FILE* stream);

enum class Colour { none, red, yellow, cyan, green };

// `text` in that colour, if `wanted`.
std::string coloured(const std::string& text, Colour colour, bool wanted);

// A bar on standard error, if that is a terminal, once the work has gone on for over a second.
// Wiped away at the end. Nothing may be written to the terminal in the meantime.
class Progress {
 public:
  // `what` stands in front of the bar; `total` is how many steps there are; with 0
  // there is no bar.
  Progress(std::string what, std::size_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // To be called for every step, with how many are done.
  void show(std::size_t done) {
    if (done % stepsPerLook == 0) showNow(done);
  }

  // The same for steps that take long, or where nothing but time has gone by.
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
  Clock::time_point next_;  // when it is to be drawn
};

}  // namespace runlet_tool
