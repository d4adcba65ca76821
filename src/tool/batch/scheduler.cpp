#include "tool/batch/scheduler.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <set>
#include <unordered_map>
#include <utility>

#include "tool/batch/guard.h"
#include "tool/batch/starter.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

using std::chrono::milliseconds;

// The longest time limit fits into milliseconds but not into the clock's own nanoseconds.
using Instant = std::chrono::time_point<std::chrono::steady_clock, milliseconds>;

constexpr milliseconds longestWait = std::chrono::hours(1);
constexpr milliseconds longestWaitOnTerminal = std::chrono::seconds(1);

Instant now() {
  return std::chrono::floor<milliseconds>(std::chrono::steady_clock::now());
}

// At least `time` from now.
Instant after(milliseconds time) {
  return std::chrono::ceil<milliseconds>(std::chrono::steady_clock::now()) + time;
}

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

TaskEnd withoutProcess(const char* what, int error) {
  return {Ending::other, 0, std::string(what) + " (" + std::strerror(error) + ")"};
}

// A child that has ended but is not reaped yet, so that its id is not reused; 0 if none has, -1
// with the reason in errno on failure.
pid_t endedChild() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 ? info.si_pid : -1;
}

// The process of a task.
struct Running {
  std::size_t task;
  TaskTry attempt;
  std::chrono::steady_clock::time_point begin;
  std::optional<Instant> deadline = {};  // of the next step to end it
  std::optional<Ending> forced = {};     // why it is being ended, if it is
  bool isKilled = false;
};

// Reaps the process, and completes its attempt.
void takeEnd(pid_t process, Running* running) {
  // Before the process is reaped: afterwards the id may belong to another group.
  if (running->forced) kill(-process, SIGKILL);
  int status = 0;
  rusage usage{};
  const bool isKnown = wait4(process, &status, 0, &usage) == process;
  TaskTry& attempt = running->attempt;
  if (!isKnown) {
    attempt.end = withoutProcess("end unknown", errno);
  } else if (running->forced) {
    attempt.end = {*running->forced, 0, ""};
  } else {
    attempt.end = endOfStatus(status);
  }
  attempt.cpu = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
  attempt.peakMemory = std::int64_t{usage.ru_maxrss} * 1024;
}

class Scheduler {
 public:
  Scheduler(const TaskSource& source, const SchedulerLimits& limits, const HeldSignals& signals,
            RunDisplay* display);
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;
  RunOutcome run();

 private:
  using Processes = std::unordered_map<pid_t, Running>;

  bool hasNext() const;
  bool mayStart() const;
  milliseconds waitingTime() const;
  RunCounts counts() const;

  std::size_t takeNext();
  void startNext();
  int start(std::size_t task, int log, TaskTry* attempt);
  void finish(std::size_t task, TaskTry* attempt);
  void finishRunning(Running* running);
  bool willTryAgain(std::size_t task, Ending ending);
  void stop(const std::string& reason, const char* fate = "");
  void takeEnded();
  void loseSight(int error);
  void haltIfDue();
  void interrupt(int signal);
  void showInterrupt(int signal);
  void endOverdue();
  void askToEnd(Processes::value_type* process, Ending why);
  void killNow(Processes::value_type* process);
  void giveUp(Processes::value_type* process);
  void setDeadline(Processes::value_type* process, std::optional<Instant> deadline);

  const TaskSource& source_;
  const SchedulerLimits& limits_;
  const HeldSignals& signals_;
  RunDisplay& display_;
  RunOutcome outcome_;
  std::size_t next_ = 0;  // of the tasks that have not been tried
  std::deque<std::size_t> again_;
  std::unordered_map<std::size_t, std::int32_t> retries_;  // of tasks that have had any
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
  bool mayHaveEnded_ = false;  // there may be more children to reap
  bool isOver_ = false;        // no more tasks can be started
  Processes processes_;
  std::set<std::pair<Instant, pid_t>> deadlines_;  // of all processes
};

Scheduler::Scheduler(const TaskSource& source, const SchedulerLimits& limits,
                     const HeldSignals& signals, RunDisplay* display)
    : source_(source), limits_(limits), signals_(signals), display_(*display) {
  outcome_.ends.resize(source.count);
}

// Processes are left if an exception, such as out of memory, ends the run.
Scheduler::~Scheduler() {
  for (const Processes::value_type& process : processes_) signalGroup(process.first, SIGKILL);
}

RunOutcome Scheduler::run() {
  while (mayStart() || !processes_.empty()) {
    const int signal = signals_.await(waitingTime());
    takeEnded();  // first: a task that has ended in time needs no signal
    if (signal != 0 && signal != SIGCHLD) interrupt(signal);
    haltIfDue();
    endOverdue();
    // Only one, then check for signals again: thousands of tasks may fail to open their logs.
    // A signal that has arrived meanwhile comes first, too.
    if (mayStart() && !isStopSignalPending()) startNext();
    display_.refresh(counts());
  }
  return std::move(outcome_);
}

bool Scheduler::hasNext() const {
  return next_ < source_.count || !again_.empty();
}

bool Scheduler::mayStart() const {
  return !isOver_ && outcome_.signal == 0 && hasNext() &&
         processes_.size() < static_cast<std::size_t>(limits_.atATime);
}

milliseconds Scheduler::waitingTime() const {
  if (mayStart() || mayHaveEnded_) return milliseconds(0);
  const milliseconds longest = display_.isOnTerminal() ? longestWaitOnTerminal : longestWait;
  if (deadlines_.empty()) return longest;
  return std::clamp(deadlines_.begin()->first - now(), milliseconds(0), longest);
}

RunCounts Scheduler::counts() const {
  return {done_, failed_, processes_.size(), isOver_ || outcome_.signal != 0};
}

std::size_t Scheduler::takeNext() {
  if (next_ < source_.count) return next_++;
  const std::size_t task = again_.front();
  again_.pop_front();
  return task;
}

void Scheduler::startNext() {
  const std::size_t task = takeNext();
  TaskTry attempt;
  attempt.beginTime = presentTime();
  const int log = source_.openLog(task);
  if (log == -1) {
    attempt.end = withoutProcess("cannot open log", errno);
    return finish(task, &attempt);
  }
  const int error = start(task, log, &attempt);
  close(log);
  if (error == starterGone) return stop("the process that starts the tasks has ended");
  if (error == 0) return;
  if (error != startForbidden) attempt.end = withoutProcess("cannot be started", error);
  finish(task, &attempt);
}

// As `Starter::start`. If the program is not allowed to run, the end of the attempt says why.
int Scheduler::start(std::size_t task, int log, TaskTry* attempt) {
  const auto announce = [&](pid_t process) {
    TaskTry begun = *attempt;
    begun.process = process;
    begun.beginTime = attempt->beginTime = presentTime();
    if (!source_.started || source_.started(task, begun)) return true;
    attempt->end = withoutProcess("cannot record its start", errno);
    stop(std::string("cannot record the start of a task: ") + std::strerror(errno));
    return false;
  };
  pid_t process = 0;
  const int error = source_.start(task, log, announce, &process);
  if (error != 0) return error;
  attempt->process = process;
  const auto begin = std::chrono::steady_clock::now();
  const auto [position, isNew] = processes_.insert({process, {task, *attempt, begin}});
  if (limits_.timeLimit) setDeadline(&*position, after(*limits_.timeLimit));
  return 0;
}

// Takes the end of an attempt that has one.
void Scheduler::finish(std::size_t task, TaskTry* attempt) {
  attempt->endTime = presentTime();
  if (source_.ended && !source_.ended(task, attempt)) {
    stop(std::string("cannot record the end of a task: ") + std::strerror(errno));
  }
  const Ending ending = attempt->end.ending;
  outcome_.ends[task] = attempt->end;
  const bool isFinal = !willTryAgain(task, ending);
  if (isFinal) ++done_;
  if (isFinal && isFailure(ending)) ++failed_;
  display_.showEnd(task, *attempt, isFinal, counts());
}

// If so, the task is in the queue.
bool Scheduler::willTryAgain(std::size_t task, Ending ending) {
  if (isOver_ || outcome_.signal != 0 || ending == Ending::succeeded || limits_.retries == 0) {
    return false;
  }
  if (retries_[task] == limits_.retries) return false;
  ++retries_[task];
  again_.push_back(task);
  return true;
}

void Scheduler::finishRunning(Running* running) {
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - running->begin;
  running->attempt.wall = wall.count();
  finish(running->task, &running->attempt);
}

// Only the first reason counts. `fate` is what happens to running tasks, if anything does.
void Scheduler::stop(const std::string& reason, const char* fate) {
  if (isOver_) return;
  isOver_ = true;
  if (outcome_.stopReason.empty()) outcome_.stopReason = reason;
  display_.showMessage(reason + "; " + fate + "no further tasks are started");
}

// Not all at once: a task can make children of this process faster than they are reaped, which must
// hold up neither signals nor time limits.
void Scheduler::takeEnded() {
  constexpr int most = 64;
  mayHaveEnded_ = false;
  for (int i = 0; i < most; ++i) {
    const pid_t process = endedChild();
    if (process == 0) return;
    if (process == -1) {
      const bool isFine = errno == ECHILD && processes_.empty();
      if (!isFine) loseSight(errno);
      return;
    }
    const auto position = processes_.find(process);
    if (position == processes_.end()) {
      // A shell that was replaced by this program (exec) may have left children. Without reaping
      // them, waitid would return them forever.
      if (waitpid(process, nullptr, 0) == process) continue;
      return loseSight(errno);
    }
    setDeadline(&*position, {});
    Running running = std::move(position->second);
    processes_.erase(position);
    takeEnd(process, &running);
    finishRunning(&running);
  }
  mayHaveEnded_ = true;
}

// If tasks cannot be waited for, they are not left running.
void Scheduler::loseSight(int error) {
  // If they are not our children, their ids may belong to any process.
  const bool areOurs = error != ECHILD;
  stop(std::string("cannot find out how tasks end: ") + std::strerror(error),
       areOurs ? "running tasks are killed, and " : "running tasks are left running, and ");
  for (Processes::value_type& process : processes_) {
    if (areOurs) signalGroup(process.first, SIGKILL);
    process.second.attempt.end = withoutProcess("end unknown", error);
    finishRunning(&process.second);
  }
  processes_.clear();
  deadlines_.clear();
}

void Scheduler::haltIfDue() {
  if (!limits_.halt || isOver_ || failed_ < limits_.halt->failures) return;
  const bool endsSome = limits_.halt->endsRunning && !processes_.empty();
  if (!hasNext() && !endsSome) return;
  stop(quantity(failed_, "task") + " failed (--halt " + visible(limits_.halt->option) + ")",
       endsSome ? "running tasks are ended, and " : "");
  for (Processes::value_type& process : processes_) {
    if (endsSome && !process.second.forced) askToEnd(&process, Ending::interrupted);
  }
}

void Scheduler::interrupt(int signal) {
  const bool isFirst = outcome_.signal == 0;
  if (isFirst) showInterrupt(signal);
  for (Processes::value_type& process : processes_) {
    if (!isFirst) {
      killNow(&process);
    } else if (!process.second.forced) {
      askToEnd(&process, Ending::interrupted);
    }
  }
}

void Scheduler::showInterrupt(int signal) {
  outcome_.signal = signal;
  if (outcome_.stopReason.empty()) outcome_.stopReason = "interrupted by " + signalText(signal);
  std::vector<std::size_t> running;
  for (const Processes::value_type& process : processes_) running.push_back(process.second.task);
  display_.showInterrupt(signal, limits_.grace, std::move(running));
}

void Scheduler::endOverdue() {
  const Instant time = now();
  while (!deadlines_.empty() && deadlines_.begin()->first <= time) {
    Processes::value_type& process = *processes_.find(deadlines_.begin()->second);
    if (process.second.isKilled) {
      giveUp(&process);
    } else if (process.second.forced) {
      killNow(&process);
    } else {
      askToEnd(&process, Ending::timedOut);
    }
  }
}

void Scheduler::askToEnd(Processes::value_type* process, Ending why) {
  process->second.forced = why;
  signalGroup(process->first, SIGTERM);
  signalGroup(process->first, SIGCONT);  // a stopped process would not handle it
  setDeadline(process, after(limits_.grace));
}

void Scheduler::killNow(Processes::value_type* process) {
  signalGroup(process->first, SIGKILL);
  process->second.isKilled = true;
  setDeadline(process, after(limits_.grace));
}

// A process that hangs in a dead file system does not end, and one that its user traces is not
// reported as ended. Neither must hold up the run.
void Scheduler::giveUp(Processes::value_type* process) {
  setDeadline(process, {});
  Running running = std::move(process->second);
  processes_.erase(process->first);
  running.attempt.end = {Ending::other, 0, "did not end after SIGKILL"};
  finishRunning(&running);
}

void Scheduler::setDeadline(Processes::value_type* process, std::optional<Instant> deadline) {
  std::optional<Instant>& current = process->second.deadline;
  if (current) deadlines_.erase({*current, process->first});
  if (deadline) deadlines_.insert({*deadline, process->first});
  current = deadline;
}

}  // namespace

RunOutcome runTasks(const TaskSource& source, const SchedulerLimits& limits,
                    const HeldSignals& signals, RunDisplay* display) {
  return Scheduler(source, limits, signals, display).run();
}

}  // namespace runlet_tool
