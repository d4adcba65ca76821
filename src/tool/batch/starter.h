// The process that starts the tasks of a run.
#pragma once

#include <sys/types.h>

#include "exec/start.h"
#include "tool/batch/become_task.h"

namespace runlet_tool {

// What `Starter::start` yields where there is no such process any more.
inline constexpr int starterGone = -1;

// A process of its own, forked before the job is loaded. It is small, whatever the size of the job,
// so that starting a task is quick and the figures of the task are its own; and it is the program
// that checked the job, whatever is installed in its place meanwhile.
//
// The tasks are children of this process all the same. They inherit the environment, the signals
// and the current folder that there were when the object was made, but for SIGCHLD, which has its
// default disposition. The other process ends with the object, or with this process.
class Starter {
 public:
  // Of the variables of the environment those in `kept` stay for tasks of another user, too.
  explicit Starter(const KeptVariables& kept = {});
  ~Starter();
  Starter(const Starter&) = delete;
  Starter& operator=(const Starter&) = delete;

  // 0, or the error number for which there is no such process.
  int error() const {
    return error_;
  }

  // Starts the task in a process that leads a session of its own, with an empty standard input and
  // both outputs to the descriptor `log`. Yields 0 with its id in `*process`; otherwise an error
  // number, or starterGone, and there is no process of the task.
  //
  // What keeps the task from running after that is written to the log, and its exit status tells
  // so.
  int start(const runlet::TaskStart& start, int log, pid_t* process) const;

 private:
  int socket_ = -1;
  pid_t process_ = -1;
  int error_ = 0;
};

}  // namespace runlet_tool
