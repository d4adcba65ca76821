#include "tool/text/units.h"

#include <chrono>
#include <cmath>
#include <ctime>

#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

constexpr double minute = 60;
constexpr double hour = 60 * minute;
constexpr double day = 24 * hour;

// "4 min 12 s" for 252 with 60 to the larger unit; the smaller one is left out if it is 0.
std::string inTwoUnits(long long count, long long factor, const char* larger, const char* smaller) {
  std::string text = std::to_string(count / factor) + larger;
  if (count % factor != 0) text.append(" ").append(std::to_string(count % factor)).append(smaller);
  return text;
}

std::string inTenths(long long count) {
  std::string text = std::to_string(count / 10);
  if (count % 10 != 0) text.append(".").append(std::to_string(count % 10));
  return text;
}

struct SizeUnit {
  double bytes;
  const char* name;
};

constexpr SizeUnit sizeUnits[] = {
    {1024.0 * 1024 * 1024 * 1024, "TiB"},
    {1024.0 * 1024 * 1024, "GiB"},
    {1024.0 * 1024, "MiB"},
    {1024.0, "KiB"},
};

}  // namespace

// Each limit is where rounding would reach the next form.
std::string durationText(double seconds) {
  if (seconds < 0.0005) return "0 s";
  if (seconds < 0.9995) return std::to_string(std::llround(seconds * 1000)) + " ms";
  if (seconds < 9.95) return inTenths(std::llround(seconds * 10)) + " s";
  if (seconds < minute - 0.5) return std::to_string(std::llround(seconds)) + " s";
  if (seconds < hour - 0.5) return inTwoUnits(std::llround(seconds), 60, " min", " s");
  if (seconds < day - minute / 2) {
    return inTwoUnits(std::llround(seconds / minute), 60, " h", " min");
  }
  return inTwoUnits(std::llround(seconds / hour), 24, " d", " h");
}

double durationStep(double seconds) {
  if (seconds < 1) return 0.001;
  if (seconds < 10) return 0.1;
  if (seconds < hour) return 1;
  return seconds < day ? minute : hour;
}

double presentTime() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string timeText(double time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &local);
  return std::string(text, length);
}

std::string sizeText(std::int64_t bytes) {
  for (const SizeUnit& unit : sizeUnits) {
    if (static_cast<double>(bytes) < unit.bytes) continue;
    return withoutLineEnd("%.1f %s", static_cast<double>(bytes) / unit.bytes, unit.name);
  }
  return quantity(static_cast<std::size_t>(bytes), "byte");
}

std::string shortened(std::string_view text, std::size_t most) {
  if (text.size() <= most) return std::string(text);
  std::size_t length = most;
  while (length > 0 && utf8CharacterLength(text.substr(length)) == 0) --length;
  return std::string(text.substr(0, length)) + "...";
}

std::string commandText(const std::vector<std::string>& words, std::size_t most) {
  std::string line;
  for (const std::string& word : words) {
    // A word grows by quoting, so that more of it cannot be shown.
    if (line.size() > most) break;
    appendShellWord(std::string_view(word).substr(0, most + 1), &line);
  }
  return shortened(line, most);
}

}  // namespace runlet_tool
