#include "tool/record/remaining.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <numeric>
#include <set>
#include <utility>

namespace runlet_tool {

const TaskIdentity& identityOf(const Record& record, const Attempt& attempt) {
  const Session& session = record.sessions[attempt.session];
  const auto position = std::lower_bound(session.tasks.begin(), session.tasks.end(), attempt.task);
  return session.identities[static_cast<std::size_t>(position - session.tasks.begin())];
}

namespace {

// How many tasks have an identity.
using Counts = std::map<TaskIdentity, std::size_t>;

// A task number, and what ran as that task.
using Place = std::pair<std::int32_t, TaskIdentity>;

// Removes one of that identity. False if there is none.
bool takeOne(const TaskIdentity& identity, Counts* counts) {
  const auto position = counts->find(identity);
  if (position == counts->end()) return false;
  if (--position->second == 0) counts->erase(position);
  return true;
}

bool hasSucceeded(const Attempt& attempt) {
  return attempt.end && attempt.result.ending == Ending::succeeded;
}

// Whether the last attempt at each place succeeded.
std::map<Place, bool> successAtPlaces(const Record& record) {
  std::map<Place, bool> success;
  for (const Attempt& attempt : record.attempts) {
    success[{attempt.task, identityOf(record, attempt)}] = hasSucceeded(attempt);
  }
  return success;
}

// The places that have succeeded, or those that have not.
std::set<Place> placesWith(bool success, const Record& record) {
  std::set<Place> places;
  for (const auto& [place, isSuccess] : successAtPlaces(record)) {
    if (isSuccess == success) places.insert(place);
  }
  return places;
}

std::set<Place> placesOf(const Session& session) {
  std::set<Place> places;
  for (std::size_t i = 0; i < session.tasks.size(); ++i) {
    places.emplace(session.tasks[i], session.identities[i]);
  }
  return places;
}

Counts countsOf(const std::vector<TaskIdentity>& identities) {
  Counts counts;
  for (const TaskIdentity& identity : identities) ++counts[identity];
  return counts;
}

Counts successesOf(const Record& record) {
  Counts counts;
  for (const Attempt& attempt : record.attempts) {
    if (hasSucceeded(attempt)) ++counts[identityOf(record, attempt)];
  }
  return counts;
}

// Of the ascending `tasks` of the job as many of each identity as there are in `counts`: first
// those at one of the places, then those with the lowest numbers.
std::vector<std::int32_t> select(const std::vector<TaskIdentity>& job,
                                 const std::vector<std::int32_t>& tasks, Counts counts,
                                 const std::set<Place>& places) {
  std::vector<std::int32_t> selected;
  std::vector<std::int32_t> others;
  const auto identity = [&](std::int32_t task) -> const TaskIdentity& {
    return job[static_cast<std::size_t>(task) - 1];
  };
  for (const std::int32_t task : tasks) {
    if (places.contains({task, identity(task)}) && takeOne(identity(task), &counts)) {
      selected.push_back(task);
    } else {
      others.push_back(task);
    }
  }
  for (const std::int32_t task : others) {
    if (takeOne(identity(task), &counts)) selected.push_back(task);
  }
  std::sort(selected.begin(), selected.end());
  return selected;
}

// Of both ascending lists, what is in the first one only.
std::vector<std::int32_t> without(const std::vector<std::int32_t>& tasks,
                                  const std::vector<std::int32_t>& others) {
  std::vector<std::int32_t> rest;
  std::set_difference(tasks.begin(), tasks.end(), others.begin(), others.end(),
                      std::back_inserter(rest));
  return rest;
}

std::vector<std::int32_t> allOf(const std::vector<TaskIdentity>& job) {
  std::vector<std::int32_t> tasks(job.size());
  std::iota(tasks.begin(), tasks.end(), 1);
  return tasks;
}

// The tasks that have the numbers of tasks of the session that the job no longer has. `known` are
// those that it has.
std::vector<std::int32_t> replacements(const Session& session, const std::vector<TaskIdentity>& job,
                                       const std::vector<std::int32_t>& known) {
  Counts missing = countsOf(session.identities);
  for (const std::int32_t task : known) takeOne(job[static_cast<std::size_t>(task) - 1], &missing);
  std::vector<std::int32_t> tasks;
  for (std::size_t i = 0; i < session.tasks.size(); ++i) {
    const auto place = static_cast<std::size_t>(session.tasks[i]) - 1;
    const bool isThere = place < job.size() && job[place] == session.identities[i];
    if (isThere || !takeOne(session.identities[i], &missing) || place >= job.size()) continue;
    tasks.push_back(session.tasks[i]);
  }
  return without(tasks, known);
}

std::vector<std::int32_t> merged(const std::vector<std::int32_t>& tasks,
                                 const std::vector<std::int32_t>& others) {
  std::vector<std::int32_t> all;
  std::merge(tasks.begin(), tasks.end(), others.begin(), others.end(), std::back_inserter(all));
  return all;
}

}  // namespace

Remaining remainingOf(const Record& record, const std::vector<TaskIdentity>& job) {
  const Session& last = record.sessions.back();
  const std::vector<std::int32_t> known =
      select(job, allOf(job), countsOf(last.identities), placesOf(last));
  Remaining result;
  result.tasks = last.isWhole ? allOf(job) : merged(known, replacements(last, job, known));
  result.toRun = without(result.tasks,
                         select(job, result.tasks, successesOf(record), placesWith(true, record)));
  result.changed = without(result.tasks, known);
  result.gone = last.tasks.size() - known.size();
  return result;
}

FailedTasks failedOf(const Record& record, const std::vector<TaskIdentity>& job) {
  Counts unfinished = countsOf(record.sessions.back().identities);
  for (const Attempt& attempt : record.attempts) {
    if (hasSucceeded(attempt)) takeOne(identityOf(record, attempt), &unfinished);
  }
  const std::set<Place> places = placesWith(false, record);
  Counts failed;
  std::size_t count = 0;
  for (const Place& place : places) {
    if (!takeOne(place.second, &unfinished)) continue;
    ++failed[place.second];
    ++count;
  }
  FailedTasks result;
  result.tasks = select(job, allOf(job), failed, places);
  result.gone = count - result.tasks.size();
  return result;
}

std::vector<std::optional<std::size_t>> countingAttempts(const Record& record) {
  const Session& last = record.sessions.back();
  std::map<Place, std::size_t> attempts;  // the last one at each place
  for (std::size_t i = 0; i < record.attempts.size(); ++i) {
    attempts[{record.attempts[i].task, identityOf(record, record.attempts[i])}] = i;
  }
  std::vector<std::optional<std::size_t>> counting(last.tasks.size());
  const auto takeOwn = [&](bool isSuccess) {
    for (std::size_t i = 0; i < counting.size(); ++i) {
      const auto own = attempts.find({last.tasks[i], last.identities[i]});
      if (counting[i] || own == attempts.end()) continue;
      if (hasSucceeded(record.attempts[own->second]) != isSuccess) continue;
      counting[i] = own->second;
      attempts.erase(own);
    }
  };
  const auto takeOthers = [&](bool isSuccess) {
    std::map<TaskIdentity, std::deque<std::size_t>> others;
    for (const auto& [place, attempt] : attempts) {
      if (hasSucceeded(record.attempts[attempt]) == isSuccess) {
        others[place.second].push_back(attempt);
      }
    }
    for (std::size_t i = 0; i < counting.size() && !others.empty(); ++i) {
      const auto found = others.find(last.identities[i]);
      if (counting[i] || found == others.end()) continue;
      counting[i] = found->second.front();
      found->second.pop_front();
      if (found->second.empty()) others.erase(found);
    }
  };
  takeOwn(true);
  takeOthers(true);
  takeOwn(false);
  takeOthers(false);
  return counting;
}

std::map<std::int32_t, std::int32_t> lastAttempts(const Record& record) {
  std::map<std::int32_t, std::int32_t> last;
  for (const Attempt& attempt : record.attempts) {
    std::int32_t& number = last[attempt.task];
    number = std::max(number, attempt.number);
  }
  return last;
}

}  // namespace runlet_tool
