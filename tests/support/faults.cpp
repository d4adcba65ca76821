// Faults that the real system does not produce on demand, as a library preloaded before the C
// library. The environment variable RUNLET_FAULT selects one.

#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sched.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

bool faultIs(const char* name) {
  const char* fault = std::getenv("RUNLET_FAULT");
  return fault != nullptr && std::strcmp(fault, name) == 0;
}

// A descriptor limit that applies from the beginning of `main`, but not yet while the libraries are
// loaded. Programs started by the program have the limit, but not this library.
[[gnu::constructor]] void limitDescriptors() {
  if (!faultIs("few-descriptors")) return;
  const auto count = static_cast<rlim_t>(std::atoi(std::getenv("RUNLET_DESCRIPTORS")));
  const rlimit limit{count, count};
  setrlimit(RLIMIT_NOFILE, &limit);
  unsetenv("LD_PRELOAD");
}

}  // namespace

extern "C" passwd* getpwnam(const char* name) {
  static passwd entry{};
  if (faultIs("user-id-minus-one")) {
    entry.pw_uid = static_cast<uid_t>(-1);
    errno = ENOENT;  // left by a successful lookup
    return &entry;
  }
  static int lookups = 0;
  if (faultIs("one-lookup") && ++lookups == 1) {
    entry.pw_uid = getuid();
    return &entry;
  }
  if (faultIs("no-such-user")) return nullptr;  // without setting errno
  if (faultIs("user-database") || lookups > 1) {
    errno = EIO;
    return nullptr;
  }
  using Function = passwd* (*)(const char*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getpwnam"))(name);
}

// A system without /proc.
extern "C" int open(const char* path, int flags, ...) {
  if (faultIs("no-proc") && std::strncmp(path, "/proc/", 6) == 0) {
    errno = ENOENT;
    return -1;
  }
  if (faultIs("terminal-unknown") && std::strcmp(path, "/dev/tty") == 0) {
    errno = ENFILE;
    return -1;
  }
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  using Function = int (*)(const char*, int, ...);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "open"))(path, flags, mode);
}

// A disk that fails, a signal while a file server is slow, short reads, and a file that shrinks
// after some bytes of it were read.
extern "C" ssize_t read(int descriptor, void* buffer, std::size_t size) {
  if (faultIs("read-error")) {
    errno = EIO;
    return -1;
  }
  if (faultIs("interrupted-read")) {
    unsetenv("RUNLET_FAULT");
    errno = EINTR;
    return -1;
  }
  static bool isFirst = true;
  if (faultIs("shrinking-file") && !isFirst) {
    errno = EINTR;  // of an earlier call: nothing has failed here
    return 0;
  }
  isFirst = false;
  const bool isShort = faultIs("short-reads") || faultIs("shrinking-file");
  using Function = ssize_t (*)(int, void*, std::size_t);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "read"))(descriptor, buffer,
                                                              isShort && size > 100 ? 100 : size);
}

// Output of programs that cannot be read.
extern "C" ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t place) {
  if (faultIs("lost-answers")) {
    errno = EIO;
    return -1;
  }
  using Function = ssize_t (*)(int, void*, std::size_t, off_t);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pread"))(descriptor, buffer, size, place);
}

// A system that cannot create another process.
extern "C" int posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                            const posix_spawnattr_t* attributes, char* const* arguments,
                            char* const* environment) {
  if (faultIs("no-process")) return EAGAIN;
  using Function = decltype(&posix_spawnp);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "posix_spawnp"))(
      pid, file, actions, attributes, arguments, environment);
}

// A system or container with no ids other than root's.
static bool isRefused(unsigned id) {
  if (id == 0 || !faultIs("only-root")) return false;
  errno = EINVAL;
  return true;
}

// A successful call may set errno to any value, which then means nothing.
extern "C" int setgid(gid_t gid) {
  if (isRefused(gid)) return -1;
  using Function = int (*)(gid_t);
  const int result = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "setgid"))(gid);
  if (result == 0 && faultIs("no-such-user")) errno = EBUSY;
  return result;
}

extern "C" int setuid(uid_t uid) {
  if (isRefused(uid)) return -1;
  using Function = int (*)(uid_t);
  const int result = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "setuid"))(uid);
  if (faultIs("core-files")) prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
  return result;
}

// On a system where a process may leave a core file even after changing its user, reports at that
// call whether this process would.
static void reportCoreFile(const char* call) {
  if (!faultIs("core-files")) return;
  const bool isLeft = prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 1;
  dprintf(STDERR_FILENO, "core file at %s: %s\n", call, isLeft ? "yes" : "no");
}

static pid_t nextWait4(pid_t pid, int* status, int options, rusage* usage) {
  using Function = pid_t (*)(pid_t, int*, int, rusage*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "wait4"))(pid, status, options, usage);
}

// As if the first relevant status had been taken by another waiter, or none could be taken.
static pid_t waitWithLoss(pid_t pid, int* status, int options, rusage* usage) {
  static pid_t lost = 0;
  if (lost == 0 && status != nullptr) {
    lost = pid;
    status = nullptr;
  }
  const bool isLost = pid == lost;
  if (isLost && faultIs("lost-status")) {
    nextWait4(pid, status, options, usage);
    lost = -2;
  }
  if (!isLost) return nextWait4(pid, status, options, usage);
  errno = ECHILD;
  return -1;
}

extern "C" pid_t wait4(pid_t pid, int* status, int options, rusage* usage) noexcept {
  const bool isLossy = faultIs("lost-status") || faultIs("kept-status");
  return isLossy ? waitWithLoss(pid, status, options, usage)
                 : nextWait4(pid, status, options, usage);
}

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
  if (faultIs("stopped-first")) {
    // As for a child that stopped under a debugger and then continued.
    unsetenv("RUNLET_FAULT");
    if (status != nullptr) *status = W_STOPCODE(SIGSTOP);
    return pid;
  }
  const pid_t result = faultIs("lost-status") || faultIs("kept-status")
                           ? waitWithLoss(pid, status, options, nullptr)
                           : nextWait4(pid, status, options, nullptr);
  if (faultIs("lost-ends")) {
    // As if every child had already been reaped.
    errno = ECHILD;
    return -1;
  }
  if (!faultIs("interrupted-wait")) return result;
  // As if a signal had arrived while the child ran; a second wait would succeed.
  unsetenv("RUNLET_FAULT");
  if (status != nullptr) *status = 3 << 8;
  errno = EINTR;
  return -1;
}

// A clock on which a minute takes a second.
constexpr long nanosecondsPerSecond = 1'000'000'000;

// How many times as fast the clock is; the slower of the two gives programs time to react.
static long speedup() {
  if (faultIs("quick-clock") || faultIs("quick-clock-without-pidfds")) return 6;
  return faultIs("fast-clock") ? 60 : 1;
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) {
  using Function = int (*)(clockid_t, timespec*);
  const int result = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "clock_gettime"))(clock, time);
  if (clock != CLOCK_MONOTONIC) return result;
  const long fraction = time->tv_nsec * speedup();
  *time = {time->tv_sec * speedup() + fraction / nanosecondsPerSecond,
           fraction % nanosecondsPerSecond};
  return result;
}

// A clock that only knows whole seconds.
extern "C" int timespec_get(timespec* time, int base) noexcept {
  using Function = int (*)(timespec*, int);
  const int result = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "timespec_get"))(time, base);
  if (faultIs("coarse-clock")) time->tv_nsec = 0;
  return result;
}

extern "C" int sigtimedwait(const sigset_t* signals, siginfo_t* info, const timespec* time) {
  const long rest = time->tv_sec % speedup() * nanosecondsPerSecond + time->tv_nsec;
  const timespec real = {time->tv_sec / speedup(), rest / speedup()};
  using Function = int (*)(const sigset_t*, siginfo_t*, const timespec*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "sigtimedwait"))(signals, info, &real);
}

// A process that is killed right before it sends another one eight bytes, including a process id.
extern "C" ssize_t send(int socket, const void* bytes, std::size_t size, int flags) {
  if (size == 8 && faultIs("lost-answer")) std::raise(SIGKILL);
  using Function = ssize_t (*)(int, const void*, std::size_t, int);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "send"))(socket, bytes, size, flags);
}

// A system on which waitid fails, or finds no children; but not before the first child has ended.
extern "C" int waitid(idtype_t type, id_t id, siginfo_t* info, int options) {
  using Function = int (*)(idtype_t, id_t, siginfo_t*, int);
  const int result =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "waitid"))(type, id, info, options);
  const bool isFine = result == 0 && info->si_pid == 0;
  if (isFine || !(faultIs("waitid-refused") || faultIs("no-children"))) return result;
  errno = faultIs("no-children") ? ECHILD : EPERM;
  return -1;
}

// A standard error that cannot be joined to standard output.
extern "C" int dup2(int from, int to) noexcept {
  if (from == STDOUT_FILENO && to == STDERR_FILENO && faultIs("dup2-refused")) {
    errno = EBUSY;
    return -1;
  }
  using Function = int (*)(int, int);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "dup2"))(from, to);
}

// A user with two groups, whoever it is.
extern "C" passwd* getpwuid(uid_t uid) {
  using Function = passwd* (*)(uid_t);
  if (!faultIs("known-user")) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getpwuid"))(uid);
  }
  static char name[] = "shot";
  static char home[] = "/home/shot";
  static char shell[] = "/bin/shots";
  static passwd entry{};
  entry.pw_name = name;
  entry.pw_uid = uid;
  entry.pw_gid = 73;
  entry.pw_dir = home;
  entry.pw_shell = shell;
  return &entry;
}

extern "C" int getgrouplist(const char* user, gid_t group, gid_t* groups, int* count) {
  using Function = int (*)(const char*, gid_t, gid_t*, int*);
  if (!faultIs("known-user")) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getgrouplist"))(user, group, groups, count);
  }
  const int room = *count;
  *count = 2;
  if (room < 2) return -1;
  groups[0] = group;
  groups[1] = 7;
  return 2;
}

static int refusedIf(bool isRefused) {
  if (isRefused) errno = EPERM;
  return isRefused ? -1 : 0;
}

// Dropping rights reports success but has no effect.
extern "C" int getresuid(uid_t* real, uid_t* effective, uid_t* saved) noexcept {
  using Function = int (*)(uid_t*, uid_t*, uid_t*);
  const int result =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getresuid"))(real, effective, saved);
  if (faultIs("keeps-root")) *saved = 0;
  return result;
}

extern "C" int getresgid(gid_t* real, gid_t* effective, gid_t* saved) noexcept {
  using Function = int (*)(gid_t*, gid_t*, gid_t*);
  const int result =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getresgid"))(real, effective, saved);
  if (faultIs("keeps-group")) *real = 0;
  return result;
}

extern "C" int setgroups(std::size_t count, const gid_t* groups) noexcept {
  using Function = int (*)(std::size_t, const gid_t*);
  reportCoreFile("setgroups");
  if (refusedIf(faultIs("no-setgroups")) != 0) return -1;
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "setgroups"))(count, groups);
}

// The error of a system that has no keyrings, forbids them, or has no room for another one; 0
// without such a fault.
static int keyringError() {
  const struct {
    const char* fault;
    int error;
  } rows[] = {
      {"no-keyrings", ENOSYS},
      {"keyrings-refused", EPERM},
      {"keyrings-forbidden", EACCES},
      {"keyring-quota", EDQUOT},
  };
  for (const auto& row : rows) {
    if (faultIs(row.fault)) return row.error;
  }
  return 0;
}

// Calls without functions in the C library.
extern "C" long syscall(long number, ...) noexcept {
  long values[6];
  va_list arguments;
  va_start(arguments, number);
  for (long& value : values) value = va_arg(arguments, long);
  va_end(arguments);
  if (number == SYS_keyctl) {
    reportCoreFile("keyctl");
    const int error = keyringError();
    if (error != 0) {
      errno = error;
      return -1;
    }
  }
  if (number == SYS_clone && (values[0] & CLONE_PIDFD) != 0 &&
      refusedIf(faultIs("quick-clock-without-pidfds")) != 0) {
    return -1;
  }
  if (number == SYS_capget && refusedIf(faultIs("capget-refused")) != 0) return -1;
  using Function = long (*)(long, ...);
  const long result = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "syscall"))(
      number, values[0], values[1], values[2], values[3], values[4], values[5]);
  if (number == SYS_capget && faultIs("keeps-capability")) {
    reinterpret_cast<__user_cap_data_struct*>(values[1])->permitted |= 1U << CAP_SETUID;
  }
  return result;
}

extern "C" int socketpair(int domain, int type, int protocol, int* ends) noexcept {
  if (faultIs("no-sockets")) {
    errno = EMFILE;
    return -1;
  }
  using Function = int (*)(int, int, int, int*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "socketpair"))(domain, type, protocol, ends);
}

extern "C" pid_t fork() noexcept {
  if (faultIs("no-fork")) {
    errno = EAGAIN;
    return -1;
  }
  return reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"))();
}

extern "C" pid_t setsid() noexcept {
  if (refusedIf(faultIs("no-session")) != 0) return -1;
  return reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "setsid"))();
}

extern "C" int pipe2(int* ends, int flags) noexcept {
  using Function = int (*)(int*, int);
  if (refusedIf(faultIs("no-pipes")) != 0) return -1;
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pipe2"))(ends, flags);
}
