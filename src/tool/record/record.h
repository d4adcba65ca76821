// What the record of a batch holds: what was run, when, for how long, and how it ended.
//
// A record is a file of JSON lines, described in docs/records.md. Each line is an event that is
// appended when it happens, so that after a crash only the ends of tasks that were running are
// missing.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool/record/ends.h"

namespace runlet_tool {

// The version of the format. A record of another version is refused.
inline constexpr int recordVersion = 1;

// Points in time are seconds since 1970 in UTC, with a fraction.
using RecordTime = double;

// A process, recognisable even after its id has been reused.
struct ProcessName {
  std::string host;
  std::string boot;         // the id of the system's start, as Linux gives it
  std::uint64_t space = 0;  // the number of the namespace that its id is of
  pid_t process = 0;
  std::uint64_t start = 0;  // when it began, in clock ticks since the system's start

  bool operator==(const ProcessName&) const = default;
};

// What a task runs: a digest of its argument vector, its folder, user and group. Tasks with equal
// identities are interchangeable.
using TaskIdentity = std::array<unsigned char, 16>;

// One `run` of a batch: the first, or one that resumed it.
struct Session {
  RecordTime begin = 0;
  std::string toolVersion;
  std::string verb;                  // "run"
  std::vector<std::string> options;  // the command line without the program and the verb
  std::string job;                   // as a full path
  std::string appPath;               // as given with -a; empty = none
  std::string digest;                // the SHA-256 of the job file, in hexadecimal digits
  std::string folder;                // that the tasks run in, as a full path
  std::int32_t uid = -1;             // that the tasks run as
  std::int32_t gid = -1;
  ProcessName process;                // the `run` itself; the tasks run on its host
  std::int32_t atATime = 1;           // how many tasks may run at a time
  double timeLimit = 0;               // of each task, in seconds; 0 = none
  std::vector<std::string> expected;  // patterns of the files that tasks must make

  // The tasks of the batch, whether this session had to run them or not.
  std::vector<std::int32_t> tasks;       // ascending
  std::vector<TaskIdentity> identities;  // what each of them runs
  bool isWhole = true;                   // they are all tasks of the job
  bool isPlanned = true;  // false: they are not yet, or were never, recorded; nothing has run

  // At the end of the session; without it, the session is running or was killed.
  std::optional<RecordTime> end;
  std::string
      stopReason;  // why no more tasks were started, for people; empty if nothing stopped it
};

// One try of a task.
struct Attempt {
  std::int32_t task = 0;           // the number in the job, from 1
  std::int32_t number = 1;         // of the attempts with this task number in this record, from 1
  std::size_t session = 0;         // the position in the record's `sessions`
  std::vector<std::string> words;  // the argument vector
  std::string log;                 // the path of the log; empty if there is none (any more)
  RecordTime begin = 0;
  pid_t process = 0;  // 0 if the task could not be started
  std::uint64_t processStart = 0;

  // Without an end, the attempt is running or was cut off by the end of the session. The record
  // does not say whether the process lives on: see isRunningHere.
  bool isAlive = false;
  std::optional<RecordTime> end;
  TaskEnd result;
  double wall = 0;              // seconds, by a clock that is never set
  double cpu = 0;               // seconds, of the task and the children it waited for
  std::int64_t peakMemory = 0;  // bytes, of the largest of these processes
  bool isDiskFull = false;      // that of its log, which may therefore be incomplete
};

// A file, whatever its path.
struct FileId {
  dev_t device = 0;
  ino_t inode = 0;

  bool operator==(const FileId&) const = default;
};

struct Record {
  FileId file;     // that it was read from
  std::string id;  // as isRecordId requires
  std::vector<Session> sessions;
  std::vector<Attempt> attempts;  // in the order of their starts

  // Why the files that it names must not be used, since somebody else may have chosen them: "the
  // record belongs to user 1001". Empty if only the caller can have written it.
  std::string distrust;
};

}  // namespace runlet_tool
