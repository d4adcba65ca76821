// A task that performs its arguments in order:
//
//   await:FILE   continues once the file exists, or after a minute
//   need:FILE    exits with 4 if there is no such file
//   sleep:MS     sleeps for that many milliseconds
//   report:FILE  appends a line to the file: the node, and all arguments
//   stamp:FILE   appends the time to the file: seconds since the epoch
//   out:TEXT     a line on standard output; err:TEXT on standard error
//   exit:CODE    exits; kill:SIGNAL ends by the signal

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

// In one call, so that the text is written atomically.
void put(int descriptor, const std::string& text) {
  if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) _exit(98);
}

bool exists(const char* path) {
  return access(path, F_OK) == 0;
}

void awaitFile(const char* path) {
  for (int tries = 0; tries < 6000 && !exists(path); ++tries) usleep(10000);
}

void append(const char* path, const std::string& line) {
  const int file = open(path, O_WRONLY | O_APPEND | O_CREAT, 0666);
  if (file == -1) _exit(97);
  put(file, line + "\n");
  close(file);
}

void report(const char* path, char** arguments) {
  const char* node = std::getenv("SLURMD_NODENAME");
  std::string line = node == nullptr ? "no node" : node;
  for (; *arguments != nullptr; ++arguments) line.append(" ").append(*arguments);
  append(path, line);
}

void stamp(const char* path) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  char text[64];
  std::snprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(now.tv_sec), now.tv_nsec);
  append(path, text);
}

// The rest of `action` if it begins with `verb`, else null.
const char* after(const char* verb, const char* action) {
  const std::size_t length = std::strlen(verb);
  return std::strncmp(action, verb, length) == 0 ? action + length : nullptr;
}

int number(const char* text) {
  return static_cast<int>(std::strtol(text, nullptr, 10));
}

void perform(const char* action, char** all) {
  if (const char* path = after("await:", action)) awaitFile(path);
  if (const char* path = after("need:", action)) {
    if (!exists(path)) _exit(4);
  }
  if (const char* time = after("sleep:", action))
    usleep(static_cast<unsigned>(number(time)) * 1000);
  if (const char* path = after("report:", action)) report(path, all);
  if (const char* path = after("stamp:", action)) stamp(path);
  if (const char* text = after("out:", action)) put(STDOUT_FILENO, std::string(text) + "\n");
  if (const char* text = after("err:", action)) put(STDERR_FILENO, std::string(text) + "\n");
  if (const char* code = after("exit:", action)) _exit(number(code));
  if (const char* signal = after("kill:", action)) std::raise(number(signal));
}

}  // namespace

int main(int, char* argv[]) {
  for (char** action = argv + 1; *action != nullptr; ++action) perform(*action, argv + 1);
  return 0;
}
