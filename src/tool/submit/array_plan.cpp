#include "tool/submit/array_plan.h"

#include <algorithm>
#include <utility>

#include "tool/text/format.h"
#include "tool/text/task_numbers.h"

namespace runlet_tool {
namespace {

// The engine refuses more than 4096 bytes, among them those of a limit on how many run at a time.
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

// Two arrays for one whose elements, for want of neighbours, take too long a text.
void appendInHalves(ArrayPart part, std::vector<ArrayPart>* parts) {
  if (elementsText(part.elements).size() <= longestElements) {
    parts->push_back(std::move(part));
    return;
  }
  ArrayPart second = part;
  const auto half = static_cast<std::ptrdiff_t>(part.elements.size() / 2);
  part.elements.erase(part.elements.begin() + half, part.elements.end());
  second.elements.erase(second.elements.begin(), second.elements.begin() + half);
  appendInHalves(std::move(part), parts);
  appendInHalves(std::move(second), parts);
}

// What has a number in the names of logs: a task, or a chunk.
struct Units {
  std::vector<std::int32_t> numbers;
  int digits;
  std::int64_t taskOfZero;  // the first task that a unit of number 0 would hold
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

// One array for as many numbers as have the same digits in front of the last few, so that the
// engine can put the names of logs together out of these and its own number of the element.
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

}  // namespace

TaskSpan tasksOf(const ArrayLayout& layout, std::int32_t element) {
  const std::int64_t first = layout.base + std::int64_t{element} * layout.chunk;
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
  for (ArrayPart& part : cut(unitsOf(tasks, taskCount, chunk), layout, maxArraySize)) {
    appendInHalves(std::move(part), &parts);
  }
  return parts;
}

std::string chunkLogName(const std::string& jobName, const ArrayLayout& layout,
                         std::int32_t element, std::size_t taskCount) {
  const int digits = digitsOf((static_cast<std::int64_t>(taskCount) - 1) / layout.chunk);
  const std::int64_t number = (layout.base - 1) / layout.chunk + std::int64_t{element};
  return jobName + "-chunk-" + padded(number, digits) + ".log";
}

}  // namespace runlet_tool
