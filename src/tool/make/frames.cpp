#include "tool/make/frames.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>
#include <vector>

#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

// FIRST, FIRST + STEP and so on up to LAST. In 64 bits, so that arithmetic with 32-bit frames
// cannot overflow. `last` is one of the frames.
struct FrameRange {
  std::int64_t first;
  std::int64_t last;
  std::int64_t step = 1;

  std::int64_t count() const {
    return (last - first) / step + 1;
  }
};

// Removes a 32-bit number from the start of `*text`.
bool takeNumber(std::string_view* text, std::int64_t* number) {
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (error != std::errc()) return false;
  text->remove_prefix(static_cast<std::size_t>(end - text->data()));
  *number = value;
  return true;
}

bool takeCharacter(char c, std::string_view* text) {
  if (!text->starts_with(c)) return false;
  text->remove_prefix(1);
  return true;
}

bool parseRange(std::string_view text, FrameRange* range) {
  if (!takeNumber(&text, &range->first)) return false;
  range->last = range->first;
  if (text.empty()) return true;
  if (!takeCharacter('-', &text) || !takeNumber(&text, &range->last)) return false;
  if (takeCharacter('x', &text) && !takeNumber(&text, &range->step)) return false;
  return text.empty();
}

// What is wrong with a parsed range; null if it is fine.
const char* faultOf(const FrameRange& range) {
  if (range.first > range.last) return "the first frame comes after the last";
  return range.step < 1 ? "the step is below 1" : nullptr;
}

bool readRange(std::string_view text, FrameRange* range, std::string* reason) {
  constexpr char noRange[] = "expected FRAME, FIRST-LAST or FIRST-LASTxSTEP";
  const char* fault = parseRange(text, range) ? faultOf(*range) : noRange;
  if (fault != nullptr) {
    *reason = shortShellWord(std::string(text)) + ": " + fault;
    return false;
  }
  range->last = range->first + (range->count() - 1) * range->step;
  return true;
}

bool readRanges(std::string_view list, std::vector<FrameRange>* ranges, std::string* reason) {
  for (bool atEnd = false; !atEnd;) {
    const std::size_t comma = list.find(',');
    FrameRange range{};
    if (!readRange(list.substr(0, comma), &range, reason)) return false;
    ranges->push_back(range);
    atEnd = comma == std::string_view::npos;
    if (!atEnd) list.remove_prefix(comma + 1);
  }
  return true;
}

std::int64_t frameCount(const std::vector<FrameRange>& ranges) {
  std::int64_t count = 0;
  for (const FrameRange& range : ranges) count += range.count();
  return count;
}

// The lowest frame that occurs twice.
std::optional<std::int32_t> repeatedFrame(const std::vector<FrameRange>& ranges) {
  std::vector<std::int32_t> frames;
  frames.reserve(static_cast<std::size_t>(frameCount(ranges)));
  for (const FrameRange& range : ranges) {
    for (std::int64_t frame = range.first; frame <= range.last; frame += range.step) {
      frames.push_back(static_cast<std::int32_t>(frame));
    }
  }
  std::sort(frames.begin(), frames.end());
  const auto frame = std::adjacent_find(frames.begin(), frames.end());
  if (frame == frames.end()) return {};
  return *frame;
}

std::int64_t taskCount(const std::vector<FrameRange>& ranges, std::int64_t chunk) {
  std::int64_t count = 0;
  for (const FrameRange& range : ranges) count += (range.count() + chunk - 1) / chunk;
  return count;
}

std::string taskEntry(std::int64_t firstFrame, std::int64_t lastFrame) {
  const std::string first = std::to_string(firstFrame);
  const std::string last = std::to_string(lastFrame);
  std::string entry = firstFrame == lastFrame ? "frame " : "frames ";
  entry += first;
  if (firstFrame != lastFrame) entry.append("-").append(last);
  return entry.append("\t").append(first).append("\t").append(last);
}

void appendRange(const FrameRange& range, std::int64_t chunk, runlet::StringList* tasks) {
  for (std::int64_t done = 0; done < range.count(); done += chunk) {
    const std::int64_t end = std::min(done + chunk, range.count());
    tasks->push_back(
        taskEntry(range.first + done * range.step, range.first + (end - 1) * range.step));
  }
}

}  // namespace

bool appendFrameTasks(std::string_view list, std::int32_t chunk, runlet::StringList* tasks,
                      std::string* reason) {
  std::vector<FrameRange> ranges;
  if (!readRanges(list, &ranges, reason)) return false;
  if (const std::int64_t count = frameCount(ranges); count > maxFrames) {
    *reason = std::to_string(count) + " frames; the limit is ten million";
    return false;
  }
  if (const auto frame = repeatedFrame(ranges); frame) {
    *reason = "frame " + std::to_string(*frame) + " is given twice";
    return false;
  }
  if (const std::int64_t count = taskCount(ranges, chunk);
      count > static_cast<std::int64_t>(maxFrameTasks)) {
    *reason = std::to_string(count) + " tasks; the limit is one million";
    return false;
  }
  for (const FrameRange& range : ranges) appendRange(range, chunk, tasks);
  return true;
}

}  // namespace runlet_tool
