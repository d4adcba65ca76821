// A task that appends its state to the file that RUNLET_RECORD names, so that one file records all
// tasks of a request in order. Arguments like "out:text", "err:text", "exit:3" and "kill:9" then
// say what to do.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "visible.h"

namespace {

using runlet_test::visible;

// In one call, so that the text is written atomically.
void put(int descriptor, const std::string& text) {
  if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) _exit(98);
}

std::string ids(uid_t real, uid_t effective, uid_t saved) {
  return std::to_string(real) + " " + std::to_string(effective) + " " + std::to_string(saved);
}

std::string identity() {
  uid_t real = 0;
  uid_t effective = 0;
  uid_t saved = 0;
  getresuid(&real, &effective, &saved);
  const std::string user = "user " + ids(real, effective, saved) + "\n";
  getresgid(&real, &effective, &saved);
  return user + "group " + ids(real, effective, saved) + "\n";
}

// Whether standard error is joined to standard output, and whether the old one is kept open.
std::string descriptors() {
  struct stat output {};
  struct stat error {};
  struct stat kept {};
  fstat(STDOUT_FILENO, &output);
  fstat(STDERR_FILENO, &error);
  const bool joined = output.st_ino == error.st_ino && output.st_dev == error.st_dev;
  std::string line = joined ? "error joined" : "error apart";
  if (fstat(STDERR_FILENO + 1, &kept) == 0) line += " and kept";
  return line + "\n";
}

std::string folder() {
  char path[4096];
  return getcwd(path, sizeof path) == nullptr ? "?" : path;
}

std::string description(int count, char** arguments) {
  std::string text;
  for (int i = 0; i < count; ++i) text += "argument " + visible(arguments[i]) + "\n";
  const mode_t mask = umask(0);
  umask(mask);
  text += "folder " + visible(folder()) + "\numask " + std::to_string(mask) + "\n";
  return text + identity() + descriptors() + "pid " + std::to_string(getpid()) + "\n";
}

void record(const std::string& text) {
  const char* path = std::getenv("RUNLET_RECORD");
  const int file = path == nullptr ? -1 : open(path, O_WRONLY | O_APPEND);
  if (file == -1) _exit(97);
  put(file, text);
  close(file);
}

// The rest of `action` if it begins with `verb`, else null.
const char* after(const char* verb, const char* action) {
  const std::size_t length = std::strlen(verb);
  return std::strncmp(action, verb, length) == 0 ? action + length : nullptr;
}

void perform(const char* action) {
  if (const char* text = after("out:", action)) put(STDOUT_FILENO, std::string(text) + "\n");
  if (const char* text = after("err:", action)) put(STDERR_FILENO, std::string(text) + "\n");
  if (const char* code = after("exit:", action)) {
    _exit(static_cast<int>(std::strtol(code, nullptr, 10) & 0xff));
  }
  if (std::strcmp(action, "kill:9") == 0) std::raise(SIGKILL);
  if (std::strcmp(action, "kill:15") == 0) std::raise(SIGTERM);
}

}  // namespace

int main(int argc, char* argv[]) {
  record(description(argc, argv));
  for (int i = 1; i < argc; ++i) perform(argv[i]);
  return 0;
}
