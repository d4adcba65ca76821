#include "tool/slurm/failed.h"

#include <algorithm>
#include <cstdio>

#include "tool/record/ends.h"
#include "tool/slurm/answers.h"
#include "tool/slurm/arrays.h"
#include "tool/slurm/client.h"
#include "tool/slurm/element_ends.h"
#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

const TaskEnd succeeded = {Ending::succeeded, 0, ""};
const TaskEnd notEnded = {Ending::other, 0, ""};

struct KnownArray {
  ArrayId id;
  ArrayOrigin origin;
};

int giveUp(const std::string& text) {
  saySubmit(text);
  return exitUnreadable;
}

// From oldest to newest, without duplicates.
std::vector<ArrayId> inOrder(std::vector<std::string> ids) {
  std::sort(ids.begin(), ids.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  std::vector<ArrayId> arrays;
  arrays.reserve(ids.size());
  for (const std::string& id : ids) arrays.push_back({id, ""});
  return arrays;
}

int askOrigins(const std::vector<ArrayId>& ids, const Batch& batch,
               std::vector<KnownArray>* arrays) {
  for (const ArrayId& id : ids) {
    KnownArray array = {id, {}};
    const std::string failure = askOrigin(id, &array.origin);
    if (!failure.empty()) return giveUp(failure);
    if (array.origin.job != jobHash(batch.context.jobFile)) {
      return giveUp("array " + id.number + " was submitted for another job file than " +
                    visible(batch.context.jobFile));
    }
    arrays->push_back(array);
  }
  return exitFine;
}

// The known states of the array's elements.
std::vector<ElementStates::value_type> statesOf(const ArrayId& id, const ElementStates& states) {
  const auto first = states.lower_bound({id.number, 0});
  const auto isOther = [&](const auto& state) { return state.first.first != id.number; };
  return {first, std::find_if(first, states.end(), isOther)};
}

// The number of elements of the array whose state Slurm no longer knows.
std::size_t countForgotten(const KnownArray& array, const ElementStates& states) {
  const std::size_t known = statesOf(array.id, states).size();
  return array.origin.elementCount - std::min(known, array.origin.elementCount);
}

bool hasForgottenAny(const std::vector<KnownArray>& arrays, const ElementStates& states) {
  return std::any_of(arrays.begin(), arrays.end(),
                     [&](const KnownArray& array) { return countForgotten(array, states) > 0; });
}

int askStates(const std::vector<ArrayId>& ids, const std::vector<KnownArray>& arrays,
              ElementStates* states) {
  std::string failure = askQueue(ids, states);
  if (failure.empty() && hasForgottenAny(arrays, *states)) failure = askAccounts(ids, states);
  if (!failure.empty()) return giveUp(failure);
  for (const KnownArray& array : arrays) {
    const std::size_t count = array.origin.elementCount;
    const std::size_t known = count - countForgotten(array, *states);
    if (known == count) continue;
    return giveUp("Slurm knows only " + std::to_string(known) + " of the " +
                  quantity(count, "element") + " of array " + array.id.number);
  }
  return exitFine;
}

// The end of every task of the batch; a task in none of the arrays counts as succeeded.
std::vector<TaskEnd> endsOf(const Batch& batch, const std::vector<KnownArray>& arrays,
                            const ElementStates& states) {
  std::vector<TaskEnd> ends(batch.tasks.size(), succeeded);
  for (const KnownArray& array : arrays) {
    for (const auto& [element, end] : statesOf(array.id, states)) {
      setEnds(batch, array.origin.layout, element, end.value_or(notEnded), &ends);
    }
  }
  return ends;
}

void reportUnfinished(const TaskNumbers& tasks) {
  if (tasks.count() == 0) return;
  std::fprintf(stderr, "runlet-job: submit: skipped, not finished yet: tasks %s\n",
               tasks.text().c_str());
}

void select(const std::vector<TaskEnd>& ends, Batch* batch) {
  std::vector<std::int32_t> failed;
  TaskNumbers open;
  for (std::size_t i = 0; i < ends.size(); ++i) {
    const std::int32_t task = batch->tasks[i];
    if (ends[i] == notEnded) {
      open.add(task);
    } else if (ends[i] != succeeded) {
      failed.push_back(task);
    }
  }
  batch->tasks = failed;
  reportUnfinished(open);
  if (failed.empty()) std::fputs("runlet-job: submit: no task has failed\n", stderr);
}

}  // namespace

int keepFailedTasks(const std::vector<std::string>& numbers, Batch* batch) {
  const std::vector<ArrayId> ids = inOrder(numbers);
  std::vector<KnownArray> arrays;
  int status = askOrigins(ids, *batch, &arrays);
  if (status != exitFine) return status;
  ElementStates states;
  status = askStates(ids, arrays, &states);
  if (status == exitFine) select(endsOf(*batch, arrays, states), batch);
  return status;
}

}  // namespace runlet_tool
