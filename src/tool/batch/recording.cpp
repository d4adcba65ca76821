#include "tool/batch/recording.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <string_view>
#include <thread>
#include <utility>

#include "tool/batch/logs.h"
#include "tool/job/preview.h"
#include "tool/record/digest.h"
#include "tool/record/read.h"
#include "tool/record/remaining.h"
#include "tool/system/exit_status.h"
#include "tool/system/files.h"
#include "tool/system/output_place.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/quoting.h"
#include "tool/text/terminal.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

void say(const std::string& text) {
  std::fprintf(stderr, "runlet-job: run: %s\n", text.c_str());
}

int giveUp(const std::string& text) {
  say(text);
  return exitUnreadable;
}

// What the tasks run. Takes time for each of them, so that only tasks that were checked may be
// asked for: the others could take very long.
std::vector<TaskIdentity> identitiesOf(const Batch& batch, const std::vector<std::int32_t>& tasks) {
  const runlet::AdapterContext& context = batch.context;
  std::vector<TaskIdentity> identities;
  identities.reserve(tasks.size());
  Preview preview;
  for (const std::int32_t task : tasks) {
    previewCommand(context, task - 1, &preview);
    identities.push_back(taskIdentity(preview.words, batch.folder, context.uid, context.gid));
  }
  return identities;
}

std::vector<TaskIdentity> identitiesOfAll(const Batch& batch) {
  std::vector<std::int32_t> all(batch.context.taskList.size());
  std::iota(all.begin(), all.end(), 1);
  return identitiesOf(batch, all);
}

void describeSession(const Batch& batch, const SessionLimits& limits, Session* session) {
  session->begin = presentTime();
  session->toolVersion = RUNLET_VERSION;
  session->verb = "run";
  session->options = ownArguments();
  if (!session->options.empty()) session->options.erase(session->options.begin());  // the verb
  session->job = batch.context.jobFile;
  session->appPath = batch.context.appPath;
  session->digest = batch.digest;
  session->folder = batch.folder;
  session->uid = batch.context.uid;
  session->gid = batch.context.gid;
  session->process = ownProcess();
  session->atATime = limits.atATime;
  session->timeLimit = limits.timeLimit;
  session->expected = batch.expected;
}

// "tasks 3, 5-9 are new or run something else, and 2 tasks are gone or changed"
std::string changesText(const Remaining& remaining) {
  std::string text;
  if (!remaining.changed.empty()) {
    text = remaining.changed.size() == 1 ? "task " : "tasks ";
    text += TaskNumbers(remaining.changed).text();
    text += remaining.changed.size() == 1 ? " is new or runs something else"
                                          : " are new or run something else";
  }
  if (remaining.gone == 0) return text;
  if (!text.empty()) text += ", and ";
  return text + quantity(remaining.gone, "task") + (remaining.gone == 1 ? " is" : " are") +
         " gone or changed";
}

// Reads a record that decides what runs. Returns what is wrong with it; empty on success.
std::string readTrusted(const std::string& path, Record* record) {
  *record = {};
  std::string wrong = readRecord(path, record);
  if (wrong.empty()) wrong = record->distrust;
  if (wrong.empty() && !record->sessions.back().isPlanned) {
    wrong = "its run ended before any task was started: run the job anew";
  }
  return wrong.empty() ? "" : wholeWord(path) + ": " + wrong;
}

// Nothing can be resumed of a run that ended before it had tasks.
bool hasTasks(const std::string& path) {
  Record record;
  if (!hasWholeLine(path)) return false;
  return !readRecord(path, &record).empty() || record.sessions.back().isPlanned;
}

// The latest record in the state folder, of any job if `job` is empty.
std::string lastRecordOf(const std::string& job, std::string* id) {
  std::string folder;
  std::string complaint = findStateFolder(&folder);
  if (!complaint.empty()) return "no folder for records: " + complaint;
  const std::vector<std::string> ids = recordIds(folder);
  const auto last = std::find_if(ids.rbegin(), ids.rend(), [&](const std::string& candidate) {
    const std::string path = recordPath(folder, candidate);
    return (job.empty() || realPath(jobOfRecord(path)) == realPath(job)) && hasTasks(path);
  });
  if (last == ids.rend()) {
    return "there is no record" + (job.empty() ? "" : " of " + shortShellWord(job)) + " in " +
           shortShellWord(folder);
  }
  *id = *last;
  return "";
}

// Reads the record that an option means: by its id or path, or the last one, of `job` if it does
// not say "last".
std::string readMeant(std::string meant, const std::string& job, std::string* path,
                      Record* record) {
  const bool isLast = meant == "last";
  std::string complaint;
  if (isLast || meant.empty()) complaint = lastRecordOf(isLast ? "" : job, &meant);
  if (complaint.empty()) complaint = findRecord(meant, path);
  if (!complaint.empty()) return complaint;
  *path = fullPath(currentFolder(), *path);
  return readTrusted(*path, record);
}

// A success means the same as before.
void takeExpected(const RecordOptions& options, const Record& record, Batch* batch) {
  if (options.takesExpected) batch->expected = record.sessions.back().expected;
}

// Whether the record was removed from the state folder, by `records prune` or before it had a line.
// One that others may have removed elsewhere is not gone: its tasks may be running.
bool isGone(const std::string& stateFolder, const std::string& path) {
  const bool isInFolder = realPath(path.substr(0, path.rfind('/'))) == realPath(stateFolder);
  struct stat status {};
  return isInFolder && lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

// Reads the record of a killed run, which decides whether a task is running. Returns why that is
// not known, for a message with the record's path; empty on success. A record that has no line yet
// has no tasks.
std::string readAbandoned(const std::string& path, Record* record) {
  std::string wrong = readRecord(path, record);
  if (wrong.empty()) {
    wrong = record->distrust;
  } else if (distrustOfFile(path).empty() && !hasWholeLine(path)) {
    *record = {};
    wrong.clear();
  }
  return wrong.empty() ? "" : "its record " + wholeWord(path) + " cannot be used: " + wrong;
}

// The tasks of a killed run that are still running here, or are being ended by the process that
// outlives the run for that.
std::vector<std::int32_t> runningTasks(const Record& record) {
  std::vector<std::int32_t> tasks;
  for (const Attempt& attempt : record.attempts) {
    if (isRunningHere(record, attempt)) tasks.push_back(attempt.task);
  }
  std::sort(tasks.begin(), tasks.end());
  return tasks;
}

// A task must not run twice at the same time. Waits for a while, after a message, for the tasks of
// the record that are running. Returns which have not ended, for a message; empty if none is
// running.
std::string awaitTasks(const Record& record, const std::string& path) {
  constexpr auto longest = std::chrono::seconds(15);
  const auto deadline = std::chrono::steady_clock::now() + longest;
  std::vector<std::int32_t> tasks = runningTasks(record);
  for (bool isFirst = true; !tasks.empty(); isFirst = false) {
    const std::string shown = (tasks.size() == 1 ? "task " : "tasks ") + TaskNumbers(tasks).text() +
                              " of batch " + record.id;
    if (isFirst) {
      say("waiting up to " + std::to_string(longest.count()) + " s for " + shown +
          ", whose run was killed");
    }
    if (std::chrono::steady_clock::now() > deadline) {
      return shown + (tasks.size() == 1 ? " is" : " are") +
             " still running: see runlet-job report " + wholeWord(path);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    tasks = runningTasks(record);
  }
  return "";
}

std::string writeFailure(const std::string& path, int error) {
  return "cannot write the record " + wholeWord(path) + ": " + std::strerror(error);
}

}  // namespace

int takeJobFromRecord(RecordOptions* options, BatchOptions* batch) {
  if (!options->resume && !options->failedOf) return exitFine;
  const char* const option = options->resume ? "--resume: " : "--failed-of: ";
  std::string& meant = options->resume ? *options->resume : *options->failedOf;
  std::string path;
  Record record;
  const bool hasJob = !batch->job.empty();
  const std::string job = hasJob ? fullPath(currentFolder(), batch->job) : "";
  const std::string complaint = readMeant(meant, job, &path, &record);
  if (!complaint.empty()) return hasJob ? exitFine : giveUp(option + complaint);
  meant = path;
  if (!hasJob) batch->job = record.sessions.back().job;
  if (batch->appPath.empty()) batch->appPath = record.sessions.back().appPath;
  return exitFine;
}

int Recording::choose(const RecordOptions& options, Batch* batch) {
  int status = claimBatch(options, *batch);
  if (status != exitFine) return status;
  session_.isWhole = batch->isWhole;
  session_.tasks = batch->tasks;
  if (options.resume) {
    status = resume(options, batch);
  } else {
    if (options.failedOf) status = selectFailed(options, batch);
    batch->attempts.assign(batch->tasks.size(), 0);
  }
  if (status != exitFine) return status;
  session_.identities = identitiesOf(*batch, session_.tasks);
  batch->logFolder = fullPath(batch->logFolder, batch->name + "-" + id_);
  batch->logFolderKind = isResumed_ ? LogFolder::owned : LogFolder::created;
  return exitFine;
}

int Recording::useStateFolder(const RecordOptions& options) {
  const std::string complaint = findStateFolder(&stateFolder_);
  if (complaint.empty()) return exitFine;
  if (options.file.empty() && !options.resume) {
    return giveUp("no folder for records: " + complaint + "; --record FILE creates one elsewhere");
  }
  say("cannot find out whether the job is running already: " + complaint);
  stateFolder_.clear();
  return exitFine;
}

int Recording::claimBatch(const RecordOptions& options, const Batch& batch) {
  const int status = useStateFolder(options);
  if (status != exitFine) return status;
  Record resumed;
  if (!options.resume) {
    const std::string failure = claimNewId(options);
    if (!failure.empty()) return giveUp(failure);
  } else {
    const std::string wrong = readMeant(*options.resume, batch.context.jobFile, &path_, &resumed);
    if (!wrong.empty()) return giveUp("--resume: " + wrong);
    id_ = resumed.id;
    isResumed_ = true;
  }
  const std::string taken = claim(realPath(batch.context.jobFile));
  if (!taken.empty()) return giveUp(shortShellWord(batch.context.jobFile) + ": " + taken);
  // Also for another copy of the job.
  const std::string resuming = isResumed_ ? claim(id_) : "";
  if (!resuming.empty()) return giveUp("--resume: " + id_ + ": " + resuming);
  return exitFine;
}

std::string Recording::claimNewId(const RecordOptions& options) {
  constexpr auto longest = std::chrono::seconds(5);
  const auto deadline = std::chrono::steady_clock::now() + longest;
  while (true) {
    id_ = newRecordId();
    path_ = options.file.empty() ? recordPath(stateFolder_, id_) : options.file;
    path_ = fullPath(currentFolder(), path_);
    std::string taken = claim(id_);
    // Another batch may have begun at the same moment, or before the clock was set back.
    const bool isUsed = !taken.empty() ? claims_.back()->isTaken()
                                       : access(recordPath(stateFolder_, id_).c_str(), F_OK) == 0;
    if (!isUsed || std::chrono::steady_clock::now() > deadline) return taken;
    claims_.pop_back();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

std::string Recording::claim(const std::string& what) {
  if (stateFolder_.empty()) return "";
  Claim& claim = *claims_.emplace_back(std::make_unique<Claim>(stateFolder_, what, path_));
  if (!claim.complaint().empty()) return claim.complaint();
  std::vector<std::string> ids;
  for (std::size_t i = 0; i < claim.abandoned().size(); ++i) {
    const std::string& path = claim.abandoned()[i];
    Record record;
    const std::string wrong = isGone(stateFolder_, path) ? "" : readAbandoned(path, &record);
    if (!wrong.empty()) {
      return "its run was killed, and " + wrong +
             "; once no task of that batch is running, remove " +
             wholeWord(claim.abandonedPaths()[i]);
    }
    std::string running = awaitTasks(record, path);
    if (!running.empty()) return running;
    // A record in the state folder has its id as its name.
    ids.push_back(record.id.empty() ? std::filesystem::path(path).stem().string() : record.id);
  }
  claim.removeAbandoned();
  // Nobody may ever resume these batches, and so come across the claims on them.
  for (const std::string& batch : ids) removeAbandonedClaims(stateFolder_, batch);
  return "";
}

int Recording::resume(const RecordOptions& options, Batch* batch) {
  // Read again: until it was claimed, another process may have continued it.
  Record record;
  const std::string complaint = readTrusted(path_, &record);
  if (!complaint.empty()) return giveUp("--resume: " + complaint);
  file_ = record.file;
  const std::string running = awaitTasks(record, path_);
  if (!running.empty()) return giveUp("--resume: " + running);
  const Remaining remaining = remainingOf(record, identitiesOfAll(*batch));
  const std::string changes = changesText(remaining);
  if (!changes.empty() && !options.acceptChanges) {
    say("--resume: the job is not what batch " + id_ + " has run: " + changes +
        "; nothing is run. --accept-changes resumes it as it is now");
    return exitUnreadable;
  }
  if (remaining.tasks.empty()) {
    return giveUp("--resume: the job has none of the tasks of batch " + id_ + " any more");
  }
  hasChanged_ = !changes.empty();
  session_.isWhole = record.sessions.back().isWhole;
  takeExpected(options, record, batch);
  session_.tasks = remaining.tasks;
  batch->tasks = remaining.toRun;
  batch->attempts.clear();
  std::map<std::int32_t, std::int32_t> last = lastAttempts(record);
  for (const std::int32_t number : batch->tasks) batch->attempts.push_back(last[number]);
  if (batch->tasks.empty()) {
    say("--resume: nothing to do: " + quantity(remaining.tasks.size(), "task") + " of batch " +
        id_ + (remaining.tasks.size() == 1 ? " has succeeded" : " have succeeded"));
  }
  return exitFine;
}

int Recording::selectFailed(const RecordOptions& options, Batch* batch) {
  std::string path;
  Record record;
  const std::string complaint =
      readMeant(*options.failedOf, batch->context.jobFile, &path, &record);
  if (!complaint.empty()) return giveUp("--failed-of: " + complaint);
  // What is running there has not failed yet.
  const std::string taken = claim(record.id);
  if (!taken.empty()) return giveUp("--failed-of: " + record.id + ": " + taken);
  const FailedTasks failed = failedOf(record, identitiesOfAll(*batch));
  if (failed.gone > 0 && !options.acceptChanges) {
    say("--failed-of: " + quantity(failed.gone, "task") + " that failed in batch " + record.id +
        (failed.gone == 1 ? " is" : " are") +
        " gone or changed; nothing is run. --accept-changes runs the others");
    return exitUnreadable;
  }
  takeExpected(options, record, batch);
  batch->tasks = failed.tasks;
  session_.tasks = batch->tasks;
  session_.isWhole = false;
  if (batch->tasks.empty()) {
    say(failed.gone == 0
            ? "--failed-of: nothing to do: no task of batch " + record.id + " has failed"
            : "--failed-of: nothing to do: the job no longer has any task that failed "
              "in batch " +
                  record.id);
  }
  return exitFine;
}

int Recording::open(const RecordOptions& options, const SessionLimits& limits, const Batch& batch) {
  describeSession(batch, limits, &session_);
  Mirror mirror;
  if (options.asJson) {
    mirror = [](std::string_view line) {
      put(line);
      std::fflush(stdout);
    };
  }
  writer_ = std::make_unique<RecordWriter>(id_, mirror);
  OutputPlace place;
  const std::string complaint = isResumed_ ? "" : findOutputPlace(path_, &place);
  if (!complaint.empty()) return giveUp("cannot create the record: " + complaint);
  int error = isResumed_ ? writer_->append(path_, file_) : writer_->create(place);
  const bool isNew = error == 0 && !isResumed_;
  if (error == 0) error = writer_->beginSession(session_);
  if (error == 0) return exitFine;
  if (isNew) unlinkat(place.folder.number(), place.name.c_str(), 0);  // nothing has run
  return giveUp(writeFailure(path_, error));
}

int Recording::openLog(std::size_t index, Batch* batch) {
  const std::int32_t task = batch->tasks[index];
  Attempt& attempt = running_[index];
  attempt.task = task;
  attempt.number = ++batch->attempts[index];
  attempt.log = logPath(*batch, task, attempt.number);
  return runlet_tool::openLog(*batch, task, attempt.number);
}

bool Recording::taskStarted(const Batch& batch, std::size_t index, const TaskTry& tried) {
  Attempt& attempt = running_[index];
  Preview preview;
  previewCommand(batch.context, attempt.task - 1, &preview);
  attempt.words.assign(preview.words.begin(), preview.words.end());
  attempt.begin = tried.beginTime;
  attempt.process = tried.process;
  attempt.processStart = processStart(tried.process);
  errno = writer_->beginAttempt(attempt);
  return errno == 0;
}

bool Recording::taskEnded(std::size_t index, const TaskTry& tried) {
  Attempt& attempt = running_[index];
  attempt.end = tried.endTime;
  attempt.result = tried.end;
  attempt.wall = tried.wall;
  attempt.cpu = tried.cpu;
  attempt.peakMemory = tried.peakMemory;
  if (tried.isLogRemoved) attempt.log.clear();
  attempt.isDiskFull = tried.isDiskFull;
  const int error = writer_->endAttempt(attempt);
  isWhole_ = isWhole_ && error == 0;
  running_.erase(index);
  errno = error;
  return error == 0;
}

bool Recording::end(const std::string& stopReason) {
  session_.end = presentTime();
  session_.stopReason = stopReason;
  const int error = writer_->endSession(session_);
  if (error != 0) say(writeFailure(path_, error));
  claims_.clear();
  return isWhole_ && error == 0;
}

}  // namespace runlet_tool
