#include "tool/slurm/answers.h"

#include <algorithm>
#include <csignal>
#include <vector>

#include "tool/text/fields.h"

namespace runlet_tool {
namespace {

// Slurm has no higher element numbers.
constexpr std::int32_t highestElement = 4'000'000;

// The non-empty words.
std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words = split(' ', text);
  std::erase_if(words, [](std::string_view word) { return word.empty(); });
  return words;
}

// The kinds of final states of an element. All other states lead to one of these.
enum class Kind { completed, failed, timedOut, other };

struct FinalState {
  std::string_view name;
  Kind kind;
};

constexpr FinalState finalStates[] = {
    {"COMPLETED", Kind::completed}, {"FAILED", Kind::failed},       {"TIMEOUT", Kind::timedOut},
    {"BOOT_FAIL", Kind::other},     {"CANCELLED", Kind::other},     {"DEADLINE", Kind::other},
    {"NODE_FAIL", Kind::other},     {"OUT_OF_MEMORY", Kind::other}, {"PREEMPTED", Kind::other},
    {"REVOKED", Kind::other},
};

TaskEnd inLowerCase(std::string_view word) {
  std::string text(word);
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return {Ending::other, 0, text};
}

// If the state is a failure but the exit code is not, Slurm failed before there was a process.
TaskEnd taskEndOf(const FinalState& state, int waitStatus) {
  if (state.kind == Kind::completed) return {Ending::succeeded, 0, ""};
  if (state.kind == Kind::timedOut) return {Ending::timedOut, 0, ""};
  const TaskEnd end = endOfStatus(waitStatus);
  const bool isOfTask = state.kind == Kind::failed && end.ending != Ending::succeeded;
  return isOfTask ? end : inLowerCase(state.name);
}

std::optional<TaskEnd> taskEndOf(std::string_view state, int waitStatus) {
  const auto* const row = std::find_if(std::begin(finalStates), std::end(finalStates),
                                       [=](const FinalState& each) { return each.name == state; });
  return row == std::end(finalStates) ? std::nullopt : std::optional(taskEndOf(*row, waitStatus));
}

// "3:0" is the exit code 3, "0:9" the signal 9.
int waitStatusOf(std::string_view text) {
  const int code = parseNumber<int>(takeUntil(':', &text)).value_or(0);
  const int signal = parseNumber<int>(text).value_or(0);
  return (code & 0xff) << 8 | (signal & 0x7f);
}

// Adds the elements of "4", "[4]" or "[1,4-6%2]": elements not yet started are reported together.
void addElements(std::string_view text, const std::string& array, const std::optional<TaskEnd>& end,
                 ElementStates* states) {
  if (text.starts_with('[')) text.remove_prefix(1);
  text = text.substr(0, text.find_first_of("]%"));
  for (const std::string_view part : split(',', text)) {
    const std::optional<NumberRange> range = parseRange(part);
    if (!range || range->last > highestElement) continue;
    for (std::int32_t i = range->first; i <= range->last; ++i) states->insert({{array, i}, end});
  }
}

}  // namespace

std::optional<ArrayId> readReply(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  const std::string_view number = takeUntil(';', &text);
  const bool isWord = text.find_first_of(" \n") == std::string_view::npos;
  if (!isNumber(number) || !isWord) return std::nullopt;
  return ArrayId{std::string(number), std::string(text)};
}

std::optional<std::int64_t> readMaxArraySize(std::string_view text) {
  for (const std::string_view line : split('\n', text)) {
    const std::vector<std::string_view> words = wordsOf(line);
    const bool isSize = words.size() == 3 && words[0] == "MaxArraySize" && words[1] == "=";
    if (isSize) return parseNumber<std::int64_t>(words[2]);
  }
  return std::nullopt;
}

void readQueue(std::string_view text, ElementStates* states) {
  for (const std::string_view line : split('\n', text)) {
    const std::vector<std::string_view> words = wordsOf(line);
    if (words.size() != 4 || !isNumber(words[0])) continue;
    const std::optional element = parseNumber<std::int32_t>(words[1]);
    const std::optional status = parseNumber<int>(words[3]);
    if (element && status) {
      (*states)[{std::string(words[0]), *element}] = taskEndOf(words[2], *status);
    }
  }
}

void readAccounts(std::string_view text, ElementStates* states) {
  for (std::string_view line : split('\n', text)) {
    std::string_view id = takeUntil('|', &line);
    const std::string_view array = takeUntil('_', &id);
    std::string_view state = takeUntil('|', &line);
    const std::string_view word = takeUntil(' ', &state);  // "CANCELLED by 1000"
    if (!isNumber(array)) continue;
    addElements(id, std::string(array), taskEndOf(word, waitStatusOf(line)), states);
  }
}

}  // namespace runlet_tool
