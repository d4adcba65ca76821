#include "tool/slurm/arrays.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdint>

#include "tool/text/format.h"

namespace runlet_tool {
namespace {

// Slurm refuses more than 4096 bytes, including the limit on how many elements run at a time.
constexpr std::size_t longestElements = 4000;

// A power of ten.
struct Power {
  std::int32_t exponent = 0;
  std::int64_t value = 1;
};

Power largestPowerWithin(std::int64_t limit) {
  Power power;
  while (power.value * 10 <= limit) {
    power.value *= 10;
    ++power.exponent;
  }
  return power;
}

int digitsOf(std::int64_t number) {
  return static_cast<int>(std::to_string(number).size());
}

std::string padded(std::int64_t number, int digits) {
  return withoutLineEnd("%0*lld", digits, static_cast<long long>(number));
}

// How much longer the text gets with one more element. Only the first two elements of a range
// count, for its two ends; the limit leaves room for an end that later has one more digit.
std::size_t spanLength(std::int32_t element, const std::vector<std::int32_t>& elements) {
  const std::size_t count = elements.size();
  const bool isInRange =
      count >= 2 && elements[count - 1] == element - 1 && elements[count - 2] == element - 2;
  return isInRange ? 0 : static_cast<std::size_t>(digitsOf(element)) + 1;
}

// Appends several arrays if the text of the elements gets too long, as it may if they are not
// contiguous.
void appendFitting(const ArrayPart& part, std::vector<ArrayPart>* parts) {
  ArrayPart fitting = part;
  fitting.elements.clear();
  std::size_t length = 0;
  for (const std::int32_t element : part.elements) {
    length += spanLength(element, fitting.elements);
    if (length > longestElements) {
      parts->push_back(fitting);
      fitting.elements.clear();
      length = spanLength(element, fitting.elements);
    }
    fitting.elements.push_back(element);
  }
  parts->push_back(fitting);
}

// What the numbers in log names count: tasks or chunks.
struct Units {
  std::vector<std::int32_t> numbers;
  int digits;
  std::int64_t taskOfZero;  // the first task of unit 0, even if there is no such unit
};

Units unitsOf(const std::vector<std::int32_t>& tasks, std::size_t taskCount, std::int32_t chunk) {
  const auto count = static_cast<std::int64_t>(taskCount);
  if (chunk == 1) return {tasks, digitsOf(count), 0};
  const std::int32_t first = (tasks.front() - 1) / chunk;
  Units units = {{}, digitsOf((count - 1) / chunk), tasks.front() - std::int64_t{first} * chunk};
  for (std::size_t i = 0; i < tasks.size(); i += static_cast<std::size_t>(chunk)) {
    units.numbers.push_back(first + static_cast<std::int32_t>(units.numbers.size()));
  }
  return units;
}

ArrayPart emptyPart(const Units& units, const ArrayLayout& layout, std::int64_t firstNumber) {
  ArrayPart part = {layout, {}, "", units.digits};
  part.layout.base = static_cast<std::int32_t>(units.taskOfZero + firstNumber * layout.chunk);
  return part;
}

ArrayPart onePart(const Units& units, const ArrayLayout& layout) {
  ArrayPart part = emptyPart(units, layout, 0);
  part.elements = units.numbers;
  return part;
}

// One array for all numbers that differ only in the last few digits, so that Slurm can compose the
// names of logs from the digits in common and its own element number.
std::vector<ArrayPart> severalParts(const Units& units, const ArrayLayout& layout, Power power) {
  std::vector<ArrayPart> parts;
  std::int64_t previous = -1;
  for (const std::int32_t number : units.numbers) {
    const std::int64_t piece = number / power.value;
    if (piece != previous) {
      parts.push_back(emptyPart(units, layout, piece * power.value));
      parts.back().digits = power.exponent;
      parts.back().number = padded(piece, units.digits - power.exponent);
    }
    previous = piece;
    parts.back().elements.push_back(static_cast<std::int32_t>(number % power.value));
  }
  return parts;
}

std::vector<ArrayPart> cut(const Units& units, const ArrayLayout& layout,
                           std::int64_t maxArraySize) {
  if (units.numbers.back() < maxArraySize) return {onePart(units, layout)};
  return severalParts(units, layout, largestPowerWithin(maxArraySize));
}

constexpr std::string_view label = "runlet-job:";
constexpr std::size_t hashLength = 16;

// Removes a non-negative number and the ":" after it from the start of `*text`. False if they are
// not there.
template <typename Number>
bool takeField(std::string_view* text, Number* number) {
  const char* const end = text->data() + text->size();
  const auto [rest, error] = std::from_chars(text->data(), end, *number);
  if (error != std::errc() || rest == end || *rest != ':' || text->front() == '-') return false;
  text->remove_prefix(static_cast<std::size_t>(rest - text->data()) + 1);
  return true;
}

}  // namespace

TaskSpan tasksOf(const ArrayLayout& layout, std::int32_t element) {
  const std::int64_t offset = std::int64_t{element} * layout.chunk;
  const std::int64_t first = layout.base + offset;
  return {first, std::min<std::int64_t>(first + layout.chunk - 1, layout.last)};
}

std::string elementsText(const std::vector<std::int32_t>& elements) {
  TaskNumbers numbers;
  for (const std::int32_t element : elements) numbers.add(element);
  return numbers.text(",");
}

std::vector<ArrayPart> planArrays(const std::vector<std::int32_t>& tasks, std::size_t taskCount,
                                  std::int32_t chunk, std::int64_t maxArraySize) {
  const ArrayLayout layout = {0, chunk, tasks.back()};
  std::vector<ArrayPart> parts;
  for (const ArrayPart& part : cut(unitsOf(tasks, taskCount, chunk), layout, maxArraySize)) {
    appendFitting(part, &parts);
  }
  return parts;
}

std::string chunkLogName(const std::string& jobName, const ArrayLayout& layout,
                         std::int32_t element, std::size_t taskCount) {
  const int digits = digitsOf((static_cast<std::int64_t>(taskCount) - 1) / layout.chunk);
  const std::int64_t number = (layout.base - 1) / layout.chunk + std::int64_t{element};
  return jobName + "-chunk-" + padded(number, digits) + ".log";
}

std::string jobHash(std::string_view jobFile) {
  std::uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
  for (const char c : jobFile) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3;
  }
  return withoutLineEnd("%016" PRIx64, hash);
}

std::string commentText(const ArrayOrigin& origin) {
  const ArrayLayout& layout = origin.layout;
  std::string text(label);
  for (const std::int64_t number : {layout.base, layout.chunk, layout.last}) {
    text.append(std::to_string(number)).append(":");
  }
  return text.append(std::to_string(origin.elementCount)).append(":").append(origin.job);
}

std::optional<ArrayOrigin> readComment(std::string_view text) {
  if (!text.starts_with(label)) return std::nullopt;
  text.remove_prefix(label.size());
  ArrayOrigin origin;
  ArrayLayout& layout = origin.layout;
  const bool isWhole = takeField(&text, &layout.base) && takeField(&text, &layout.chunk) &&
                       takeField(&text, &layout.last) && takeField(&text, &origin.elementCount);
  if (!isWhole || layout.chunk == 0 || text.size() < hashLength) return std::nullopt;
  origin.job = text.substr(0, hashLength);
  return origin;
}

}  // namespace runlet_tool
