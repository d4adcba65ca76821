// The process that starts the tasks of a run.
#pragma once

#include <sys/types.h>

#include "exec/start.h"
#include "tool/batch/become_task.h"

namespace runlet_tool {

// What `Starter::start` returns if the starter process has ended.
inline constexpr int starterGone = -1;

// A separate process, forked before the job is loaded. It is small whatever the size of the job, so
// that starting a task is fast and its resource usage is its own; and it is the program that
// checked the job, even if another one is installed meanwhile.
//
// The tasks are nevertheless children of this process. They inherit the environment, signal
// dispositions and current folder from when the object was created, except that SIGCHLD has its
// default disposition. The starter process ends with the object or with this process.
class Starter {
 public:
  // Tasks of another user also keep the environment variables in `kept`.
  explicit Starter(const KeptVariables& kept = {});
  ~Starter();
  Starter(const Starter&) = delete;
  Starter& operator=(const Starter&) = delete;

  // 0, or why there is no starter process, as an error number.
  int error() const {
    return error_;
  }

  // Starts the task in a process that leads its own session, with an empty standard input and both
  // outputs going to the descriptor `log`. Returns 0 with the process id in `*process`; otherwise
  // an error number or starterGone, and the task has no process.
  //
  // A later failure to run the task's program is written to the log and is seen in the exit status.
  int start(const runlet::TaskStart& start, int log, pid_t* process) const;

 private:
  int socket_ = -1;
  pid_t process_ = -1;
  int error_ = 0;
};

}  // namespace runlet_tool
