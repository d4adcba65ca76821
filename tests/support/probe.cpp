// A task that reports its own state: it writes a line for each item to the file named by its first
// argument.

#include <dirent.h>
#include <fcntl.h>
#include <linux/keyctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "visible.h"

namespace {

using runlet_test::visible;

std::string targetOf(const std::string& link) {
  char target[4096];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length < 0 ? "?" : std::string(target, static_cast<std::size_t>(length));
}

std::vector<int> openDescriptors() {
  std::vector<int> descriptors;
  DIR* folder = opendir("/proc/self/fd");
  for (const dirent* entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
    if (entry->d_name[0] == '.') continue;
    const int descriptor = std::stoi(entry->d_name);
    if (descriptor != dirfd(folder)) descriptors.push_back(descriptor);
  }
  closedir(folder);
  std::sort(descriptors.begin(), descriptors.end());
  return descriptors;
}

// Whether there is a controlling terminal.
bool hasTerminal() {
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal == -1) return false;
  close(terminal);
  return true;
}

// -1 if the system has none.
long sessionKeyring() {
  return syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_SESSION_KEYRING, 0);
}

// Every line of a system file about this process, prefixed with `kind`.
void copyLines(const char* path, const char* kind, std::ofstream* report) {
  std::ifstream text(path);
  for (std::string line; std::getline(text, line);) *report << kind << " " << line << "\n";
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 2) return 2;
  // Open descriptors must be listed before the report is opened.
  const std::vector<int> descriptors = openDescriptors();
  std::ofstream report(argv[1]);
  for (int i = 0; i < argc; ++i) report << "argument " << visible(argv[i]) << "\n";
  report << "pid " << getpid() << "\nparent " << getppid() << "\n";
  report << "group " << getpgrp() << "\nsession " << getsid(0) << "\n";
  report << "terminal " << (hasTerminal() ? "yes" : "no") << "\n";
  report << "keyring " << sessionKeyring() << "\n";
  report << "folder " << targetOf("/proc/self/cwd") << "\n";
  for (const int descriptor : descriptors) {
    const std::string number = std::to_string(descriptor);
    report << "descriptor " << number << " " << targetOf("/proc/self/fd/" + number) << "\n";
  }
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    for (const char* name :
         {"Uid:", "Gid:", "Groups:", "Umask:", "SigBlk:", "SigIgn:", "SigCgt:", "CapInh:",
          "CapPrm:", "CapEff:", "CapBnd:", "CapAmb:", "NoNewPrivs:"}) {
      if (line.rfind(name, 0) == 0) report << line << "\n";
    }
  }
  for (char** variable = environ; *variable != nullptr; ++variable) {
    report << "variable " << visible(*variable) << "\n";
  }
  report << "priority " << getpriority(PRIO_PROCESS, 0) << "\n";
  copyLines("/proc/self/limits", "limit", &report);
  copyLines("/proc/self/oom_score_adj", "oom", &report);
  copyLines("/proc/self/cgroup", "cgroup", &report);
  return report.flush() ? 0 : 1;
}
