#include "tool/record/remaining.h"

#include <algorithm>
#include <cstddef>

namespace runlet_tool {
namespace {

// How many tasks have an identity.
using Counts = std::map<TaskIdentity, std::size_t>;

// Removes one of that identity. False if there is none.
bool takeOne(const TaskIdentity& identity, Counts* counts) {
  const auto position = counts->find(identity);
  if (position == counts->end()) return false;
  if (--position->second == 0) counts->erase(position);
  return true;
}

// What the attempt ran.
const TaskIdentity& identityOf(const Record& record, const Attempt& attempt) {
  const Session& session = record.sessions[attempt.session];
  const auto position = std::lower_bound(session.tasks.begin(), session.tasks.end(), attempt.task);
  return session.identities[static_cast<std::size_t>(position - session.tasks.begin())];
}

bool hasSucceeded(const Attempt& attempt) {
  return attempt.end && attempt.result.ending == Ending::succeeded;
}

// The last attempt of each task, with the session that it counts in.
std::map<std::int32_t, const Attempt*> lastOfEach(const Record& record) {
  std::map<std::int32_t, const Attempt*> last;
  for (const Attempt& attempt : record.attempts) last[attempt.task] = &attempt;
  return last;
}

Counts countsOf(const std::vector<TaskIdentity>& identities) {
  Counts counts;
  for (const TaskIdentity& identity : identities) ++counts[identity];
  return counts;
}

std::vector<std::int32_t> tasksNow(const Session& session, std::size_t jobSize) {
  std::vector<std::int32_t> tasks = session.tasks;
  if (session.isWhole) {
    tasks.resize(jobSize);
    std::int32_t number = 0;
    for (std::int32_t& task : tasks) task = ++number;
  }
  std::erase_if(tasks, [=](std::int32_t task) { return static_cast<std::size_t>(task) > jobSize; });
  return tasks;
}

}  // namespace

Remaining remainingOf(const Record& record, const std::vector<TaskIdentity>& job) {
  Counts succeeded;
  for (const Attempt& attempt : record.attempts) {
    if (hasSucceeded(attempt)) ++succeeded[identityOf(record, attempt)];
  }
  const Session& last = record.sessions.back();
  Counts known = countsOf(last.identities);
  Remaining result;
  result.tasks = tasksNow(last, job.size());
  for (const std::int32_t task : result.tasks) {
    const TaskIdentity& identity = job[static_cast<std::size_t>(task) - 1];
    if (!takeOne(identity, &succeeded)) result.toRun.push_back(task);
    if (!takeOne(identity, &known)) result.changed.push_back(task);
  }
  for (const auto& [identity, count] : known) result.gone += count;
  return result;
}

std::vector<std::int32_t> failedOf(const Record& record, const std::vector<TaskIdentity>& job) {
  Counts failed;
  for (const auto& [task, attempt] : lastOfEach(record)) {
    if (!hasSucceeded(*attempt)) ++failed[identityOf(record, *attempt)];
  }
  std::vector<std::int32_t> tasks;
  for (std::size_t i = 0; i < job.size(); ++i) {
    if (takeOne(job[i], &failed)) tasks.push_back(static_cast<std::int32_t>(i + 1));
  }
  return tasks;
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
