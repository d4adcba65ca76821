// What a report says about a batch, computed from its record.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool/record/record.h"
#include "tool/report/slots.h"
#include "tool/text/format.h"

namespace runlet_tool {

enum class BatchState {
  running,
  finished,
  killed,  // ended without having recorded that
};

// The same in files: "running", "finished", "killed".
const char* stateKey(BatchState state);

// How an attempt, or a task, ended; the first ones as in Ending.
enum class Standing {
  succeeded,
  failed,
  killed,
  timedOut,
  interrupted,
  notStarted,  // also a task that has no attempt
  other,
  cutOff,  // was running when its session was killed
  running,
  waiting,  // a task without an attempt, in a batch that is running
};
inline constexpr std::size_t standingCount = 10;

// "succeeded", "timed out", "running".
const char* standingName(Standing standing);

// The same in files: "timed-out".
const char* standingKey(Standing standing);

// Whether a task with that standing belongs to the failures.
bool isFailure(Standing standing);

// A task of the batch.
struct TaskState {
  std::int32_t task = 0;
  Standing standing = Standing::notStarted;
  std::optional<std::size_t> attempt;  // that counts for it, see countingAttempts
};

// An attempt beyond what its record says.
struct AttemptState {
  Standing standing = Standing::running;
  Span span;                              // when it ran, as far as it is known
  double wall = 0;                        // seconds
  std::optional<std::int32_t> countsFor;  // the task that it counts for, see countingAttempts
  std::size_t slot = 0;  // from 0; no two attempts of a session have the same at the same time
};

struct Overview {
  Record record;
  BatchState state = BatchState::finished;
  RecordTime now = 0;

  std::vector<Span> sessions;  // when they ran, as far as it is known; parallel to the record's
  std::vector<AttemptState> attempts;  // parallel to the record's
  std::size_t slots = 0;               // how many there are
  std::vector<TaskState> tasks;        // ascending
  std::array<TaskNumbers, standingCount> tasksByStanding;
  std::vector<std::size_t> failures;  // positions in `tasks`
  TaskNumbers onFullDisk;             // whose latest attempt's log may be incomplete

  // Of the attempts that ran and whose end is known: their durations in seconds, ascending, and the
  // positions of the slowest, slowest first.
  std::vector<double> durations;
  std::vector<std::size_t> slowest;

  double running = 0;  // seconds, of all sessions
  double wall = 0;     // seconds, of all attempts
  double cpu = 0;      // seconds
  // Bytes, of the largest process, and the attempt that had it.
  std::int64_t peakMemory = 0;
  std::optional<std::size_t> peakAttempt;
  // Attempts that ended without success, and their seconds.
  std::size_t lostAttempts = 0;
  double lost = 0;

  // How many tasks ran at a time on average; 0 if no time has passed.
  double atATime() const {
    return running > 0 ? wall / running : 0;
  }

  const TaskNumbers& tasksWith(Standing standing) const {
    return tasksByStanding[static_cast<std::size_t>(standing)];
  }
};

// `record` is one from readRecord. `isRunning`: the process of the last session may be running.
// `now` is in seconds since 1970. `mostSlowest` limits `slowest`.
Overview overviewOf(Record record, bool isRunning, RecordTime now, std::size_t mostSlowest);

// Reads the record in the file `path`. Returns why that fails, as readRecord does; empty on
// success.
std::string readOverview(const std::string& path, std::size_t mostSlowest, Overview* overview);

// The positions of the attempts of the failures from `first` up to, but not including, `end`.
std::vector<std::size_t> attemptsOfFailures(const Overview& overview, std::size_t first,
                                            std::size_t end);

// For people; each is one line that is safe to print.

// "running on HOST as process 4711", "finished", "ended early (REASON)", "killed", "killed, but 2
// tasks are still running".
std::string stateText(const Overview& overview);

// "running", "finished", "ended early (REASON)", "killed".
std::string sessionEndText(const Overview& overview, std::size_t session);

// How long a session ran, all of them together, and the attempts that ended without success:
// "3.2 s", or "at least 3.2 s" if the end of one of them is not known.
std::string sessionLengthText(const Overview& overview, std::size_t session);
std::string runningText(const Overview& overview);
std::string lostText(const Overview& overview);

// "task 7", or with the number of an attempt that is not the first: "task 7, attempt 2"; if it
// counts for a task that has another number now, "task 9 (then task 7)".
std::string attemptTaskText(const Overview& overview, std::size_t attempt);

// "failed with exit code 3", "running": at most 200 bytes and "...".
std::string endText(const Overview& overview, std::size_t attempt);

// "The disk was full: the logs of 2 tasks (3, 9) may be incomplete"; empty if it never was.
std::string fullDiskText(const Overview& overview);

// "the record belongs to user 1001: what it says may be wrong"; empty if only the caller can have
// written the record (see Record::distrust).
std::string cautionText(const Overview& overview);

// The numbers as in "3-5, 9", as far as they fit into about 40 bytes, and then "...".
std::string numbersText(const TaskNumbers& numbers);

// The command line of the session, "runlet-job run job.xml --jobs 4", as from `shortened`.
std::string sessionCommand(const Session& session, std::size_t most);

}  // namespace runlet_tool
