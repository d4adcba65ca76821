#include "fault_test.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace runlet_test {
namespace {

// The fields of /proc/PID/stat from the third on; the second, the name, may hold anything.
std::string statOf(pid_t pid) {
  std::ifstream stream("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(stream, line, '\0');  // empty if the process ends meanwhile
  const std::size_t name = line.rfind(") ");
  return name == std::string::npos ? "" : line.substr(name + 2);
}

// The children of this process, each with its state.
std::string describeChildren() {
  std::string text;
  for (const pid_t child : childrenOf(getpid())) {
    text += std::to_string(child) + " " + stateOf(child) + "; ";
  }
  return text;
}

// The children of each are reparented to this process when it ends.
void endChildren() {
  const std::vector<pid_t> children = childrenOf(getpid());
  if (children.empty()) return;
  for (const pid_t child : children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  endChildren();
}

}  // namespace

void FaultTest::SetUp() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void FaultTest::TearDown() {
  EXPECT_EQ(describeChildren(), "") << "left behind by the adapter";
  endChildren();
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

std::vector<std::string> FaultTest::files() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string FaultTest::script(const std::string& name, const std::string& text) const {
  folder_.write(name, "#!/bin/sh\n" + text + "\n", 0755);
  return "./" + name;
}

std::string FaultTest::until(const std::string& name) {
  return "while [ -e job.xml -a ! -e " + name + " ]; do sleep 0.01; done";
}

pid_t announcedChild(Process* adapter) {
  const std::string announcement = "[ServerMessage]ProcessStarted processId=";
  if (!adapter->readUntil(announcement)) return -1;
  const std::string& output = adapter->output();
  // The line is written atomically.
  return std::atoi(output.c_str() + output.rfind(announcement) + announcement.size());
}

bool eventually(const std::function<bool()>& holds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!holds()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

char stateOf(pid_t pid) {
  const std::string stat = statOf(pid);
  return stat.empty() ? '-' : stat[0];
}

pid_t parentOf(pid_t pid) {
  const std::string stat = statOf(pid);
  return stat.empty() ? -1 : std::atoi(stat.c_str() + 2);
}

std::vector<pid_t> childrenOf(pid_t pid) {
  std::vector<pid_t> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t other = std::atoi(entry.path().filename().c_str());
    if (other > 0 && parentOf(other) == pid) children.push_back(other);
  }
  return children;
}

std::string endOfOrphan(pid_t pid) {
  int status = 0;
  pid_t ended = 0;
  eventually([&] { return (ended = waitpid(pid, &status, WNOHANG)) != 0; });
  if (ended == 0) return "still running";
  return ended > 0 ? describeStatus(status) : "no such process";
}

}  // namespace runlet_test
