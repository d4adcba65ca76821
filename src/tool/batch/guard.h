// Ending the tasks of a run that was killed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <vector>

namespace runlet_tool {

// Signals the group of `process`, or the process itself if it leads none.
void signalGroup(pid_t process, int signal);

// The processes of tasks that may be running. They need not be children of this process.
//
// Each is held by a pidfd if possible, so that no signal goes to a process that was given the id of
// a task that has ended. The pidfds take at most half of the descriptors that this process may
// have. Without one, a task is known by its id alone.
class TaskGuard {
 public:
  TaskGuard();
  ~TaskGuard();
  TaskGuard(const TaskGuard&) = delete;
  TaskGuard& operator=(const TaskGuard&) = delete;

  // Whether the next task may have a pidfd. Called before each task: from time to time it forgets
  // those that have ended, so that the cost of a task does not depend on their number.
  bool hasRoom();

  // Takes ownership of `descriptor`, a pidfd of `process` or -1.
  void add(pid_t process, int descriptor);

  // Ends the groups of the tasks that have not ended: SIGTERM, and SIGCONT so that stopped
  // processes handle it, after the grace period SIGKILL. Once a task itself has ended, the rest of
  // its group is killed. Returns when all have ended or have been killed.
  void endAll(std::chrono::milliseconds grace);

 private:
  struct Task {
    pid_t process;
    int descriptor;
  };

  static bool hasEnded(const Task& task);

  // Forgets the tasks that have ended, and if `isKilling`, kills the rest of their groups.
  void forgetEnded(bool isKilling);

  std::vector<Task> tasks_;
  std::size_t mostDescriptors_;
  std::size_t forgetAt_;  // how many tasks make it worth looking for those that have ended
};

}  // namespace runlet_tool
