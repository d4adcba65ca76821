// Preloaded into the adapter before the C library: appends the commands that the adapter passes to
// the shell to the file that RUNLET_SHELL_RECORD names, each followed by a NUL. Programs started by
// the adapter do not load this library.
//
// If RUNLET_ID_RECORD names a file, the program cannot switch ids, but the calls report success:
// the requested ids are appended to that file.
//
// The jobs are random, and the tests may run as root. So commands that are special to the shell do
// not reach it, and nothing is changed or started outside the folder that RUNLET_GROUNDS names.

#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr char chmodCommand[] = "/bin/chmod 755 ";
constexpr char plainCharacters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./%:,+@";

[[gnu::constructor]] void stayInThisProcess() {
  unsetenv("LD_PRELOAD");
}

// Part of a line longer than the usual buffer is written before there is a child, and the rest may
// come after the child's output.
[[gnu::constructor]] void giveLinesRoom() {
  static char buffer[1 << 16];
  std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
}

void record(const char* variable, const char* text, std::size_t size) {
  const char* path = std::getenv(variable);
  const int file = path == nullptr ? -1 : open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
  if (file == -1) _exit(97);
  if (write(file, text, size) != static_cast<ssize_t>(size)) _exit(98);
  close(file);
}

constexpr char idRecord[] = "RUNLET_ID_RECORD";

int recordId(const char* kind, unsigned id) {
  const std::string line = kind + std::to_string(static_cast<int>(id)) + "\n";
  record(idRecord, line.c_str(), line.size());
  return 0;
}

bool isOutside(const char* path) {
  char* found = realpath(path, nullptr);
  if (found == nullptr) return false;  // so nothing inside it exists
  const std::string grounds = std::string(std::getenv("RUNLET_GROUNDS")) + "/";
  const bool outside = std::strncmp(found, grounds.c_str(), grounds.size()) != 0;
  std::free(found);
  return outside;
}

bool isHarmless(const char* command) {
  const std::size_t start = std::strlen(chmodCommand);
  if (std::strncmp(command, chmodCommand, start) != 0) return false;
  const char* path = command + start;
  return path[std::strspn(path, plainCharacters)] == '\0' && !isOutside(path);
}

template <typename Function>
Function* realFunction(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int system(const char* command) {
  record("RUNLET_SHELL_RECORD", command, std::strlen(command) + 1);
  if (!isHarmless(command)) return 1 << 8;
  return realFunction<int(const char*)>("system")(command);
}

extern "C" int execvp(const char* file, char* const arguments[]) {
  if (std::strchr(file, '/') != nullptr && isOutside(file)) {
    std::fprintf(stderr, "kept from starting %s\n", file);
    _exit(99);
  }
  return realFunction<int(const char*, char* const[])>("execvp")(file, arguments);
}

extern "C" int setgid(gid_t gid) {
  if (std::getenv(idRecord) != nullptr) return recordId("group ", gid);
  return realFunction<int(gid_t)>("setgid")(gid);
}

// Without a preceding lookup, the user is the job's.
static bool isLookedUp = false;

extern "C" int setuid(uid_t uid) {
  if (std::getenv(idRecord) == nullptr) return realFunction<int(uid_t)>("setuid")(uid);
  return isLookedUp ? 0 : recordId("user ", uid);
}

extern "C" passwd* getpwnam(const char* name) {
  if (std::getenv(idRecord) == nullptr) return realFunction<passwd*(const char*)>("getpwnam")(name);
  isLookedUp = true;
  static passwd self{};
  self.pw_uid = getuid();
  return &self;
}
