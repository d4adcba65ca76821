#include "tool/batch/display.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/quoting.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

using Seconds = std::chrono::duration<double>;

// How long the task ran; empty if it did not.
std::string timeOf(const TaskTry& attempt) {
  if (attempt.process == 0) return "";
  const bool isFine = attempt.end.ending == Ending::succeeded;
  return (isFine ? " in " : " after ") + durationText(attempt.wall);
}

}  // namespace

std::string signalText(int signal) {
  return "signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

RunDisplay::RunDisplay(const std::vector<std::int32_t>& numbers,
                       std::function<std::string(std::size_t)> logOf, bool isQuiet)
    : numbers_(numbers),
      logOf_(std::move(logOf)),
      isQuiet_(isQuiet),
      hasColour_(wantsColour(stderr)),
      bar_("running", numbers.size()) {}

void RunDisplay::showEnd(std::size_t task, const TaskTry& attempt, bool isFinal,
                         const RunCounts& counts) {
  if (attempt.isDiskFull) {
    std::string log;
    appendShellWord(logOf_(task), &log);
    showMessage("task " + std::to_string(numbers_[task]) +
                ": its log may be incomplete, the disk is full: " + log);
  }
  const bool hasFailed = isFinal && isFailure(attempt.end.ending);
  if (isQuiet_ || (isOnTerminal() && !hasFailed)) return;
  std::string line = "task " + std::to_string(numbers_[task]) + ": ";
  // There are colours on a terminal only, and there only lines of failures.
  line += coloured(visible(describe(attempt.end)), Colour::red, hasColour_) + timeOf(attempt);
  if (isFinal) {
    line += " (" + std::to_string(counts.done) + " of " + std::to_string(numbers_.size()) + ")";
  } else {
    line += ", will be tried again";
  }
  if (attempt.end.ending != Ending::succeeded) {
    line += ", log:";
    appendShellWord(logOf_(task), &line);
  }
  bar_.erase();
  std::fprintf(stderr, "%s\n", line.c_str());
}

void RunDisplay::showInterrupt(int signal, std::chrono::milliseconds grace,
                               std::vector<std::size_t> running) {
  std::string line = "interrupted by " + signalText(signal);
  std::sort(running.begin(), running.end());
  TaskNumbers tasks;
  for (const std::size_t task : running) tasks.add(numbers_[task]);
  if (!running.empty()) {
    line += ": waiting up to " + std::to_string(grace / std::chrono::seconds(1)) + " s for " +
            quantity(running.size(), "running task") + " (" + tasks.text() +
            "); interrupt again to kill " + (running.size() == 1 ? "it" : "them");
  }
  bar_.erase();
  std::fprintf(stderr, "%s\n", line.c_str());
}

void RunDisplay::showMessage(const std::string& text) {
  bar_.erase();
  std::fprintf(stderr, "runlet-job: run: %s\n", text.c_str());
}

void RunDisplay::refresh(const RunCounts& counts) {
  if (bar_.isDue()) bar_.draw(counts.done, details(counts));
}

// "37 of 100, 4 running, 2 failed, 3 min 20 s left"
std::string RunDisplay::details(const RunCounts& counts) const {
  std::string text = std::to_string(counts.done) + " of " + std::to_string(numbers_.size());
  text += ", " + std::to_string(counts.running) + " running";
  if (counts.failed > 0) text += ", " + std::to_string(counts.failed) + " failed";
  if (counts.done == 0 || counts.isEnding) return text;
  const Seconds passed = std::chrono::steady_clock::now() - begin_;
  const auto left = static_cast<double>(numbers_.size() - counts.done);
  return text + ", " + durationText(passed.count() * left / static_cast<double>(counts.done)) +
         " left";
}

}  // namespace runlet_tool
