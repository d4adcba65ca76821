#include "tool/slurm/wait.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "tool/slurm/client.h"
#include "tool/slurm/element_ends.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds shortestPause(200);
constexpr milliseconds longestPause(5000);
constexpr int doublings = 5;       // from the shortest to the longest
constexpr int shareOfAsking = 10;  // at most a tenth of the time is spent asking
constexpr int patience = 3;        // how often in a row Slurm may not know an element

struct Watched {
  std::optional<TaskEnd> end;
  int misses = 0;  // in a row
};

using WatchedElements = std::map<ElementId, Watched>;

WatchedElements watchedOf(const std::vector<SubmittedArray>& arrays) {
  WatchedElements elements;
  for (const SubmittedArray& array : arrays) {
    for (const std::int32_t element : array.part.elements) elements[{array.id.number, element}];
  }
  return elements;
}

std::vector<ArrayId> idsOf(const std::vector<SubmittedArray>& arrays) {
  std::vector<ArrayId> ids;
  ids.reserve(arrays.size());
  for (const SubmittedArray& array : arrays) ids.push_back(array.id);
  return ids;
}

// An ended element may be running again: Slurm requeues elements lost with their node.
void update(const ElementStates& states, WatchedElements* elements) {
  for (auto& [id, watched] : *elements) {
    const auto state = states.find(id);
    if (state != states.end()) {
      watched = {state->second, 0};
    } else if (!watched.end && ++watched.misses == patience) {
      watched.end = TaskEnd{Ending::other, 0, "unknown"};
    }
  }
}

bool hasAll(const ElementStates& states, const WatchedElements& elements) {
  return std::all_of(elements.begin(), elements.end(),
                     [&](const auto& element) { return states.contains(element.first); });
}

// So that accounting records, which may lag, are not queried for these.
void addKnownEnds(const WatchedElements& elements, ElementStates* states) {
  for (const auto& [id, watched] : elements) {
    if (watched.end) states->insert({id, watched.end});
  }
}

// Returns an empty text, or why there was no answer.
std::string updateAll(const std::vector<ArrayId>& ids, WatchedElements* elements) {
  ElementStates states;
  std::string failure = askQueue(ids, &states);
  addKnownEnds(*elements, &states);
  if (failure.empty() && !hasAll(states, *elements)) failure = askAccounts(ids, &states);
  if (failure.empty()) update(states, elements);
  return failure;
}

std::size_t countEnded(const WatchedElements& elements) {
  return static_cast<std::size_t>(std::count_if(
      elements.begin(), elements.end(), [](const auto& element) { return element.second.end; }));
}

void reportSilence(const std::string& reason) {
  std::fprintf(stderr, "%srunlet-job: submit: no answer from Slurm, still waiting: %s\n", overBar(),
               reason.c_str());
}

void awaitElements(const std::vector<ArrayId>& ids, WatchedElements* elements) {
  Progress bar("waiting", elements->size());
  bool isSilenceReported = false;
  for (int count = 1;; ++count) {
    const Clock::time_point begin = Clock::now();
    const std::string failure = updateAll(ids, elements);
    if (!failure.empty() && !isSilenceReported) reportSilence(failure);
    isSilenceReported = isSilenceReported || !failure.empty();
    const std::size_t ended = countEnded(*elements);
    if (ended == elements->size()) return;
    bar.showNow(ended);
    const auto duration = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    // If Slurm did not answer, the time was spent waiting, not keeping it busy.
    std::this_thread::sleep_for(pauseAfter(count, failure.empty() ? duration : milliseconds(0)));
  }
}

}  // namespace

const char* overBar() {
  return isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "";
}

milliseconds pauseAfter(int count, milliseconds duration) {
  const milliseconds growing = shortestPause * (1 << std::min(count - 1, doublings));
  return std::max(std::min(growing, longestPause), duration * shareOfAsking);
}

std::vector<TaskEnd> awaitTasks(const Batch& batch, const std::vector<SubmittedArray>& arrays) {
  WatchedElements elements = watchedOf(arrays);
  awaitElements(idsOf(arrays), &elements);
  std::vector<TaskEnd> ends(batch.tasks.size());
  for (const SubmittedArray& array : arrays) {
    for (const std::int32_t element : array.part.elements) {
      const ElementId id = {array.id.number, element};
      setEnds(batch, array.part.layout, id, elements[id].end.value_or(TaskEnd{}), &ends);
    }
  }
  return ends;
}

}  // namespace runlet_tool
