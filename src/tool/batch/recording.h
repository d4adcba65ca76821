// Recording what the tasks of a batch do, and what a record says is still to be done.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tool/batch/batch.h"
#include "tool/batch/scheduler.h"
#include "tool/record/record.h"
#include "tool/record/store.h"
#include "tool/record/write.h"

namespace runlet_tool {

// The command-line options about records.
struct RecordOptions {
  std::string file;                     // where to create the record; empty = in the state folder
  std::optional<std::string> resume;    // the record to continue; empty = the last one of the job
  std::optional<std::string> failedOf;  // only the tasks that failed in that record
  bool acceptChanges = false;           // although the job has changed
  bool takesExpected = true;            // of these records; false: others were given, or none
  bool asJson = false;                  // copy the events to standard output
};

// What is recorded of the options that say how to run the tasks.
struct SessionLimits {
  std::int32_t atATime = 1;
  double timeLimit = 0;  // seconds; 0 = none
};

// If `*options` continue a record or refer to one, completes `batch` with what it lacks of that
// record's job and application, and `*options` with the path of the record, so that it remains the
// same one. Returns exitFine, or the status to exit with after a message. If `batch` names a job,
// `Recording::choose` says what is wrong with the record.
int takeJobFromRecord(RecordOptions* options, BatchOptions* batch);

// The record of a batch, from its start to its end.
class Recording {
 public:
  // Claims the job for this process, and selects the tasks to run if `options` continue a record or
  // refer to one. `*batch` is left with these tasks, of which there may be none, and with a log
  // folder that only this batch uses. Returns exitFine, or the status to exit with after a message
  // on standard error.
  int choose(const RecordOptions& options, Batch* batch);

  // Creates the record, or continues the one to resume. Returns exitFine, or the status to exit
  // with after a message on standard error; then nothing may run.
  int open(const RecordOptions& options, const SessionLimits& limits, const Batch& batch);

  // Whether the batch that is resumed has other tasks than before, which are then to be recorded
  // even if none of them has to run.
  bool hasChanged() const {
    return hasChanged_;
  }

  // The id of the record.
  const std::string& id() const {
    return id_;
  }

  // Opens the log of a new attempt of the task at `index` of the batch's tasks: see openLog. The
  // attempt then ends with taskEnded, also if that fails, unless the starter process has ended.
  int openLog(std::size_t index, Batch* batch);

  // Record what a scheduler reports. False, with the reason in errno, if that fails.
  bool taskStarted(const Batch& batch, std::size_t index, const TaskTry& tried);
  bool taskEnded(std::size_t index, const TaskTry& tried);

  // Records the end of the session, and claims nothing any more. False if that fails, after a
  // message on standard error, or if the end of a task could not be recorded.
  bool end(const std::string& stopReason);

 private:
  int useStateFolder(const RecordOptions& options);
  int claimBatch(const RecordOptions& options, const Batch& batch);
  int resume(const RecordOptions& options, Batch* batch);
  int selectFailed(const RecordOptions& options, Batch* batch);
  std::string claim(const std::string& what);
  std::string claimNewId(const RecordOptions& options);

  std::string stateFolder_;
  std::vector<std::unique_ptr<Claim>> claims_;
  std::string id_;
  std::string path_;
  bool isResumed_ = false;
  bool hasChanged_ = false;
  FileId file_;  // of the record that is resumed
  Session session_;
  std::unique_ptr<RecordWriter> writer_;
  bool isWhole_ = true;                     // so far, each end of a task was recorded
  std::map<std::size_t, Attempt> running_;  // by index of the task
};

}  // namespace runlet_tool
