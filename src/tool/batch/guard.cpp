#include "tool/batch/guard.h"

#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace runlet_tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t fewTasks = 16;
constexpr std::chrono::milliseconds pause(20);  // between two looks at the tasks being ended

std::size_t halfOfTheDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  return static_cast<std::size_t>(limit.rlim_cur / 2);
}

}  // namespace

void signalGroup(pid_t process, int signal) {
  if (kill(-process, signal) != 0) kill(process, signal);
}

TaskGuard::TaskGuard() : mostDescriptors_(halfOfTheDescriptors()), forgetAt_(fewTasks) {}

TaskGuard::~TaskGuard() {
  for (const Task& task : tasks_) close(task.descriptor);
}

bool TaskGuard::hasRoom() {
  if (tasks_.size() >= std::min(forgetAt_, mostDescriptors_)) {
    forgetEnded(false);
    forgetAt_ = 2 * tasks_.size() + fewTasks;
  }
  return tasks_.size() < mostDescriptors_;
}

void TaskGuard::add(pid_t process, int descriptor) {
  tasks_.push_back({process, descriptor});
}

void TaskGuard::endAll(std::chrono::milliseconds grace) {
  forgetEnded(false);
  for (const Task& task : tasks_) {
    signalGroup(task.process, SIGTERM);
    signalGroup(task.process, SIGCONT);
  }
  const Clock::time_point deadline = Clock::now() + grace;
  while (!tasks_.empty() && Clock::now() < deadline) {
    forgetEnded(true);
    poll(nullptr, 0, static_cast<int>(pause.count()));
  }
  for (const Task& task : tasks_) signalGroup(task.process, SIGKILL);
}

bool TaskGuard::hasEnded(const Task& task) {
  if (task.descriptor == -1) return kill(task.process, 0) != 0 && errno == ESRCH;
  pollfd end{task.descriptor, POLLIN, 0};
  return poll(&end, 1, 0) == 1;
}

void TaskGuard::forgetEnded(bool isKilling) {
  std::erase_if(tasks_, [=](const Task& task) {
    if (!hasEnded(task)) return false;
    // As long as its group has members, no other process is given its id.
    if (isKilling) kill(-task.process, SIGKILL);
    close(task.descriptor);
    return true;
  });
}

}  // namespace runlet_tool
