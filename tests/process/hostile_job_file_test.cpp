// Malicious job files, which the adapter reads as root.

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <thread>

#include "adapter_test.h"

namespace runlet_test {
namespace {

using namespace std::string_literals;

constexpr std::size_t mebibyte = std::size_t{1} << 20;
constexpr std::size_t million = 1000000;

// A sanitizer uses memory of its own.
#ifdef RUNLET_IS_SANITIZED
constexpr bool isMemoryMeasurable = false;
#else
constexpr bool isMemoryMeasurable = true;
#endif

std::string repeat(const std::string& text, std::size_t count) {
  std::string repeated;
  repeated.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) repeated += text;
  return repeated;
}

std::string nested(std::size_t levels) {
  return repeat("<x>", levels) + repeat("</x>", levels);
}

class HostileJobFile : public AdapterTest {
 protected:
  std::string couldNotLoad(const std::string& path, const std::string& reason) const {
    return "Runlet adapter: Could not load parameter file " + path + ". Error='" + reason +
           "'.Exiting.\n";
  }

  // Asserts that nothing is started, that one line says why, and that at most `bytesPerByte` bytes
  // of memory are used per byte of the file.
  void expectRefused(const std::string& path, const std::string& reason,
                     std::size_t bytesPerByte = 4) const {
    SCOPED_TRACE(path);
    const ProcessResult result = run({"-o", "NewTask", "-j", path, "-s", "1", "-n", "1"});
    expectResult(result, "", couldNotLoad(path, reason), "exit 255");
    expectMemory(result, path, bytesPerByte);
  }

  void expectTextRefused(const std::string& text, const std::string& reason) const {
    SCOPED_TRACE(text.substr(0, 100));
    expectRefused(folder_.write("job.xml", text), reason);
  }

  void expectMemory(const ProcessResult& result, const std::string& path,
                    std::size_t bytesPerByte) const {
    if (!isMemoryMeasurable) return;
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    const std::size_t size = S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
    EXPECT_LE(result.peakMemory, 64 * mebibyte + bytesPerByte * size);
  }

  // Asserts that the job is accepted and its task receives `argument`.
  void expectRuns(const std::string& text, const std::string& argument) {
    folder_.write("job.xml", text);
    const ProcessResult result = run(newTask());
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    EXPECT_EQ(report()["argument"].back(), argument);
  }

  std::string command(const std::string& argument) const {
    return probe() + " " + argument;
  }
};

// The job of `expectRuns`, with additional content.
std::string jobText(const std::string& command, const std::string& front,
                    const std::string& elements) {
  Job job;
  job.arguments = command;
  std::string text = job.text();
  const std::string opening = "<cmdData>";
  text.insert(text.find(opening) + opening.size(), elements);
  return front + text;
}

TEST_F(HostileJobFile, ThatIsADeviceIsRefused) {
  expectRefused("/dev/null", "Error document empty.");
  expectRefused("/dev/zero", "Error document empty.");
  expectRefused("/dev/tty", "Error document empty.");
  expectRefused("/proc/self/mem", "Error document empty.");
  expectRefused("/dev", "Is a directory");
}

TEST_F(HostileJobFile, ThatIsEmptyOrNotTextIsRefused) {
  expectTextRefused("", "Error document empty.");
  expectTextRefused(std::string(1000, '\0'), "Error document empty.");
  expectTextRefused("\xff\xfe<\0J\0>\0"s, "Error document empty.");
  expectTextRefused(
      "\x7f"
      "ELF\2\1\1\0"s,
      "Error document empty.");
}

TEST_F(HostileJobFile, ThatHasANulInTheMiddleIsRefused) {
  expectTextRefused("\0<Job/>"s, "Error document empty.");
  expectTextRefused("<Job><cmdData>\0</cmdData></Job>"s, "Error reading Element value.");
  expectTextRefused("<Job><cmdData>text\0</cmdData></Job>"s, "Error reading Element value.");
  expectTextRefused("<Job><cmdData></cmdData\0></Job>"s, "Error reading end tag.");
  expectTextRefused("<Job><cmdData a='\0'></cmdData></Job>"s, "Error parsing Element.");
  expectTextRefused("<Job><!--\0--></Job>"s, "Error reading Element value.");
}

TEST_F(HostileJobFile, ThatIsMerelyUnusualIsAccepted) {
  expectRuns(jobText(command("mark"), "\xef\xbb\xbf", ""), "mark");
  expectRuns(jobText(command("a\xff\x80z"), "", ""), "a\\xff\\x80z");
  expectRuns(jobText(command("nested"), "", nested(1000)), "nested");
  expectRuns(
      jobText(command("markup"), "",
              "<!--" + repeat("<x a='", million) + "--><![CDATA[" + repeat("<x ", million) + "]]>"),
      "markup");
}

TEST_F(HostileJobFile, ThatIsNestedAMillionLevelsDeepIsRefused) {
  expectTextRefused(repeat("<a>", million), "Elements nested too deep.");
  expectTextRefused(jobText("true", "", nested(million)), "Elements nested too deep.");
}

// The stack of the process may already hold as much as the system allows: environment and arguments
// of a quarter of the stack, or 128 KiB.
TEST_F(HostileJobFile, MayBeAsDeepAsTheStackAllows) {
  constexpr std::size_t kibibyte = 1024;
  const char* tooDeep = "Elements nested too deep.";
  const struct {
    rlim_t stack;
    std::size_t environment;
    std::size_t levels;  // with the root and cmdData
    const char* refusal;
  } rows[] = {
      {256 * kibibyte, 100 * kibibyte, 109, tooDeep},
      {512 * kibibyte, 100 * kibibyte, 546, tooDeep},
      {1024 * kibibyte, 240 * kibibyte, 1201, tooDeep},
      {8192 * kibibyte, 2000 * kibibyte, 10376, tooDeep},
      // 19,999 * 20,000 / 2 levels over all nodes
      {RLIM_INFINITY, 0, 20000, "Too many nested elements."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.stack);
    ProcessOptions options = adapter({"-o", "PingTask", "-j", jobFile_});
    options.program = plainAdapterPath;
    options.prepare = [row] {
      // A single string may have 128 KiB.
      constexpr std::size_t piece = 100 * kibibyte;
      for (std::size_t left = row.environment; left > 0; left -= std::min(left, piece)) {
        const std::string name = "FILLER" + std::to_string(left);
        setenv(name.c_str(), std::string(std::min(left, piece), 'x').c_str(), 1);
      }
      const rlimit stack{row.stack, RLIM_INFINITY};
      if (setrlimit(RLIMIT_STACK, &stack) != 0) _exit(95);
    };
    const std::size_t most = row.levels - 2;
    folder_.write("job.xml", jobText("true", "", nested(most)));
    expectResult(runProcess(options), "", "", "exit 0");
    folder_.write("job.xml", jobText("true", "", nested(most + 1)));
    expectResult(runProcess(options), "", couldNotLoad(jobFile_, row.refusal), "exit 255");
  }
}

// The library walks up through all levels for each node.
TEST_F(HostileJobFile, WithAMillionNodesDeepInsideIsRefused) {
  expectTextRefused(
      jobText("true", "", repeat("<a>", 1900) + repeat("<>", million) + repeat("</a>", 1900)),
      "Too many nested elements.");
}

// Opening can have side effects: acquire a terminal, rewind a tape, arm a watchdog.
TEST_F(HostileJobFile, ThatIsNotARegularFileIsNotEvenOpened) {
  ASSERT_EQ(mkfifo(jobFile_.c_str(), 0600), 0);
  const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_NE(inotify_add_watch(watch, jobFile_.c_str(), IN_OPEN), -1);
  expectRefused(jobFile_, "Error document empty.");
  char event[sizeof(inotify_event)];
  EXPECT_EQ(read(watch, event, sizeof event), -1);
  close(watch);
}

// Another process holds a lease and must be notified before the file is read, as a file server may
// for its clients.
class LeasedFile {
 public:
  explicit LeasedFile(const std::string& path)
      : descriptor_(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    std::signal(SIGIO, SIG_IGN);  // which notifies the lease holder
    EXPECT_EQ(fcntl(descriptor_, F_SETLEASE, F_WRLCK), 0) << std::strerror(errno);
  }

  ~LeasedFile() {
    close(descriptor_);
    std::signal(SIGIO, SIG_DFL);
  }

  LeasedFile(const LeasedFile&) = delete;
  LeasedFile& operator=(const LeasedFile&) = delete;

  // Whether another process waits to read the file, so that the lease must be downgraded.
  bool isWanted() const {
    return fcntl(descriptor_, F_GETLEASE) == F_RDLCK;
  }

  // Waits until another process does. False after ten seconds.
  bool awaitReader() const {
    for (int i = 0; i < 10000; ++i) {
      if (isWanted()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

  void release() const {
    EXPECT_EQ(fcntl(descriptor_, F_SETLEASE, F_UNLCK), 0);
  }

  // The reader may be faster, and then no lease can be taken.
  void releaseAndTake() const {
    release();
    fcntl(descriptor_, F_SETLEASE, F_WRLCK);
  }

 private:
  int descriptor_;
};

TEST_F(HostileJobFile, ThatAnotherProcessHasALeaseOnIsWaitedFor) {
  const LeasedFile file(folder_.write("job.xml", jobText("true", "", "")));
  Process process(adapter({"-o", "PingTask", "-j", jobFile_}));
  EXPECT_TRUE(file.awaitReader());
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(kill(process.pid(), 0), 0);
  file.release();
  expectResult(process.finish(), "", "", "exit 0");
}

// The file found first is read. Nobody ever writes to the pipe.
TEST_F(HostileJobFile, ThatBecomesAPipeDuringALeaseIsReadAsBefore) {
  const LeasedFile file(folder_.write("job.xml", jobText("true", "", "")));
  Process process(adapter({"-o", "PingTask", "-j", jobFile_}));
  EXPECT_TRUE(file.awaitReader());
  ASSERT_EQ(mkfifo(folder_.file("pipe").c_str(), 0644), 0);
  std::filesystem::rename(folder_.file("pipe"), jobFile_);
  file.release();
  expectResult(process.finish(), "", "", "exit 0");
}

// Releasing a lease and taking it again blocks nobody.
TEST_F(HostileJobFile, ThatAnotherProcessAlwaysHasALeaseOnIsRead) {
  const LeasedFile file(folder_.write("job.xml", jobText("true", "", "")));
  // The adapter is started first: a fork while a thread begins may copy locks that are never
  // released.
  Process process(adapter({"-o", "PingTask", "-j", jobFile_}));
  std::atomic<bool> done = false;
  std::thread holder([&] {
    while (!done) {
      if (file.isWanted()) file.releaseAndTake();
    }
  });
  const ProcessResult result = process.finish();
  done = true;
  holder.join();
  expectResult(result, "", "", "exit 0");
}

std::string withAttributes(std::size_t count) {
  std::string element = "<x";
  for (std::size_t i = 0; i < count; ++i) element += " a" + std::to_string(i) + "=''";
  return element + "/>";
}

TEST_F(HostileJobFile, WithAMillionAttributesIsRefused) {
  expectTextRefused(jobText("true", "", withAttributes(million)), "Too many attributes.");
  expectTextRefused(jobText("true", "", repeat(withAttributes(10000), 5)), "Too many attributes.");
  expectRuns(jobText(command("attributes"), "", withAttributes(10000)), "attributes");
}

// The input for which the library uses the most memory.
TEST_F(HostileJobFile, OfTheSmallestNodesTakesBoundedMemory) {
  const std::string path =
      folder_.write("job.xml", jobText("true", "", repeat("x<>", 3 * million)));
  const ProcessResult result = run({"-o", "PingTask", "-j", path});
  expectResult(result, "", "", "exit 0");
  expectMemory(result, path, 85);
}

TEST_F(HostileJobFile, WithAHundredMegabytesOfTextIsAcceptedUnchanged) {
  // Too long for a command line, but for nothing else.
  const std::string path =
      folder_.write("job.xml", jobText(std::string(100 * million, 'x'), "", ""));
  const ProcessResult newTask = run({"-o", "NewTask", "-j", path, "-s", "1"});
  expectResult(newTask, "", "Runlet adapter: Process fill-in for arguments failed.\n", "exit 255");
  expectMemory(newTask, path, 8);
  expectResult(run({"-o", "PingTask", "-j", path}), "", "", "exit 0");
}

TEST_F(HostileJobFile, ThatIsHugeIsRefused) {
  const std::string path = folder_.write("job.xml", "<Job>");
  std::filesystem::resize_file(path, 128 * mebibyte);
  expectRefused(path, "Error reading Element value.");
  for (const std::size_t size : {128 * mebibyte + 1, std::size_t{1} << 40}) {
    std::filesystem::resize_file(path, size);
    expectRefused(path, "File too large", 0);
  }
}

TEST_F(HostileJobFile, ThatCannotBeReadToItsEndIsRefused) {
  const std::string path = folder_.write("job.xml", jobText("true", "", ""));
  const std::vector<std::string> ping = {"-o", "PingTask", "-j", path};
  expectResult(runProcess(withFault("read-error", ping)), "",
               couldNotLoad(path, "Input/output error"), "exit 255");
  expectResult(runProcess(withFault("shrinking-file", ping)), "",
               couldNotLoad(path, "File became shorter while it was read"), "exit 255");
  expectResult(runProcess(withFault("interrupted-read", ping)), "", "", "exit 0");
  expectResult(runProcess(withFault("no-proc", ping)), "", "", "exit 0");
  expectResult(runProcess(withFault("short-reads", ping)), "", "", "exit 0");
}

// The message about a job file that could not be loaded, with an empty reason.
std::string withoutReason(const std::string& line) {
  return std::regex_replace(line, std::regex("Error='[A-Za-z ]+[.]?'"), "Error=''");
}

// Shortens the file, over and over, and fills it again with `text`, until it is killed.
[[noreturn]] void changeForever(const std::string& path, const std::string& text) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // ends with the test at the latest
  for (off_t size = 0;; size = (size + 100003) % static_cast<off_t>(text.size())) {
    if (truncate(path.c_str(), size) != 0) _exit(1);
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (pwrite(file, text.data(), text.size(), 0) < 0) _exit(1);
    close(file);
  }
}

TEST_F(HostileJobFile, ThatShrinksAndGrowsMeanwhileIsAcceptedOrRefused) {
  const std::string text = jobText("true", "", "<x>" + repeat("y", mebibyte) + "</x>");
  const std::string path = folder_.write("job.xml", text);
  // No thread: each start of the adapter would copy its locks.
  const pid_t changes = fork();
  ASSERT_NE(changes, -1);  // with -1, the kill below would hit every process
  if (changes == 0) changeForever(path, text);
  const std::string refusal = couldNotLoad(path, "");
  for (int i = 0; i < 100; ++i) {
    const ProcessResult result = run({"-o", "PingTask", "-j", path});
    EXPECT_EQ(result.output, "");
    if (result.error.empty()) {
      EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    } else {
      EXPECT_EQ(withoutReason(result.error), refusal);
      EXPECT_EQ(describeStatus(result.waitStatus), "exit 255");
    }
  }
  EXPECT_EQ(kill(changes, SIGKILL), 0);
  int status = 0;
  EXPECT_EQ(waitpid(changes, &status, 0), changes);
  EXPECT_TRUE(WIFSIGNALED(status));  // ended by the kill, not by a failure
}

}  // namespace
}  // namespace runlet_test
