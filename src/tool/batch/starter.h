// The process that starts the tasks of a run.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

#include "exec/start.h"
#include "tool/batch/become_task.h"

namespace runlet_tool {

// How long tasks being ended have between SIGTERM and SIGKILL.
inline constexpr std::chrono::seconds usualGrace(10);

// Called when the process of a task exists, but before it may run the task's program. If it returns
// false, the program does not run.
using Announce = std::function<bool(pid_t)>;

// What `Starter::start` returns if the starter process has ended, and if the task was not allowed
// to run.
inline constexpr int starterGone = -1;
inline constexpr int startForbidden = -2;

// A separate process, forked before the job is loaded. It is small whatever the size of the job, so
// that starting a task is fast and its resource usage is its own; and it is the program that
// checked the job, even if another one is installed meanwhile.
//
// The tasks are nevertheless children of this process. They inherit the environment, signal
// dispositions and current folder from when the object was created, except that SIGCHLD has its
// default disposition.
//
// If this process is killed, the starter process ends the tasks that still run, as
// TaskGuard::endAll does, and then itself. If it is the starter process that is killed, they run
// on.
class Starter {
 public:
  // Tasks of another user also keep the environment variables in `kept`. `grace` is for tasks that
  // the starter process ends.
  explicit Starter(const KeptVariables& kept = {}, std::chrono::milliseconds grace = usualGrace);
  ~Starter();
  Starter(const Starter&) = delete;
  Starter& operator=(const Starter&) = delete;

  // 0, or why there is no starter process, as an error number.
  int error() const {
    return error_;
  }

  // Starts the task in a process that leads its own session, with an empty standard input and both
  // outputs going to the descriptor `log`. `announce` may be empty. Returns 0 with the process id
  // in
  // `*process`; otherwise an error number, starterGone or startForbidden, and the task has no
  // process.
  //
  // A later failure to run the task's program is written to the log and is seen in the exit status.
  int start(const runlet::TaskStart& start, int log, const Announce& announce,
            pid_t* process) const;

  // Ends the starter process. Tasks that still run are left alone.
  void end();

 private:
  int socket_ = -1;
  pid_t process_ = -1;
  int error_ = 0;
};

}  // namespace runlet_tool
