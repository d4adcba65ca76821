// Run folders that cannot be entered and programs that cannot be executed, for every reason the
// system has.

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "fault_test.h"
#include "mounts.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

class RunFolder : public FaultTest {
 protected:
  // The tasks 1 to `count` of a job that runs `command` in `path`.
  ProcessOptions tasksIn(const std::string& path, const std::string& command, int count) {
    Job job;
    job.arguments = command;
    job.set("WorkingFolder", path);
    job.tasks.assign(static_cast<std::size_t>(count), "t");
    if (geteuid() == 0) {
      job.set("uid", std::to_string(otherId)).set("gid", std::to_string(otherId));
    }
    write(job);
    return unprivileged(newTask(1, count));
  }
};

TEST_F(RunFolder, ThatNoPathLeadsToIsNamedWithTheReason) {
  ASSERT_EQ(symlink("loop", folder_.file("loop").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", folder_.file("dangling").c_str()), 0);
  folder_.write("file", "");
  std::string longPath = folder();
  while (longPath.size() <= 4096) longPath += "/.";
  const struct {
    std::string path;
    const char* reason;
  } rows[] = {
      {folder_.file("loop"), "Too many levels of symbolic links"},
      {folder_.file("dangling"), "No such file or directory"},
      {folder_.file("file/below"), "Not a directory"},
      {folder_.file(std::string(256, 'n')), "File name too long"},
      {longPath, "File name too long"},
  };
  const Strings before = files();
  for (const auto& row : rows) {
    const ProcessOptions options = tasksIn(row.path, "/bin/mkdir made%tn", 2);
    expectResult(runProcess(options), "", cannotEnter(row.path, row.reason), "exit 255");
  }
  // Only the job, and the copy of the adapter that another user may execute.
  for (const std::string& name : files()) {
    EXPECT_TRUE(name == "job.xml" || name == "adapter" ||
                std::find(before.begin(), before.end(), name) != before.end())
        << name;
  }
}

// A name of the maximum length, after a path of the maximum length.
TEST_F(RunFolder, MayHaveTheLongestNameAndPath) {
  const std::string name(255, 'n');
  folder_.makeFolder(name);
  std::string path = folder();
  while (path.size() + name.size() + 1 < 4094) path += "/.";
  path += std::string(4095 - path.size() - name.size(), '/') + name;
  ASSERT_EQ(path.size(), 4095U);
  // The line is longer than the output buffer, so it is written in two pieces, and output of a task
  // could come between them.
  expectResult(runProcess(tasksIn(path, "/bin/true", 1)),
               calling("/bin/true", path) + processStarted, "", "exit 0");
}

// What the first task does to its folder affects the second, and no third is tried.
TEST_F(RunFolder, ThatThePreviousTaskRemovedEndsTheRequest) {
  const struct {
    const char* change;
    const char* reason;
  } rows[] = {
      {"rmdir $1", "No such file or directory"},
      {"mv $1 $1.moved", "No such file or directory"},
      {"rmdir $1; >$1", "Not a directory"},
      {"rmdir $1; ln -s $1 $1", "Too many levels of symbolic links"},
      {"chmod 600 $1", "Permission denied"},
  };
  const std::string program = folder_.file("change");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.change);
    const TempFolder scratch;
    ASSERT_EQ(chmod(scratch.path().c_str(), 0777), 0);
    const std::string work = scratch.file("work");
    script("change", std::string("echo $2 >>$1.log\n") + row.change);
    ASSERT_EQ(mkdir(work.c_str(), 0755), 0);
    const uid_t user = geteuid() == 0 ? otherId : geteuid();
    ASSERT_EQ(chown(work.c_str(), user, static_cast<gid_t>(-1)), 0);
    const std::string command = program + " " + work + " %tn";
    expectResult(runProcess(tasksIn(work, command, 3)),
                 calling(program + " " + work + " 1", work) + processStarted,
                 cannotEnter(work, row.reason), "exit 255");
    EXPECT_EQ(readFile(work + ".log"), "1\n");
    std::error_code ignored;
    std::filesystem::permissions(work, std::filesystem::perms::owner_all, ignored);
  }
}

// The job has been read; its own folder, the default, is removed along with the file.
TEST_F(RunFolder, OfTheJobFileMayDisappearWithIt) {
  const std::string jobs = folder_.makeFolder("jobs");
  Job job;
  job.arguments = "/bin/rm -r " + jobs;
  job.tasks.assign(2, "t");
  folder_.write("jobs/job.xml", job.text());
  expectResult(run({"-o", "NewTask", "-j", jobs + "/job.xml", "-s", "1", "-n", "2"}),
               calling("/bin/rm -r " + jobs, jobs) + processStarted,
               cannotEnter(jobs, "No such file or directory"), "exit 255");
  EXPECT_EQ(files(), Strings{});
}

class Program : public FaultTest {
 protected:
  // Asserts that the report reaches the adapter's standard error, whether that of the task is
  // redirected or not.
  void expectNoneExecutes(const ProcessOptions& options, Job job, const std::string& command,
                          const std::string& reason) {
    for (const char* redirect : {"yes", "no"}) {
      SCOPED_TRACE(redirect);
      job.arguments = command;
      job.set("redirectStderr", redirect);
      write(job);
      expectNotExecuted(runProcess(options), command, reason);
    }
  }

  void expectNoneExecutes(const std::string& command, const std::string& reason) {
    expectNoneExecutes(adapter(newTask()), Job(), command, reason);
  }

  // The first task of the job whose command is `command`, with this PATH.
  ProcessResult runWithPath(const std::string& searchPath, const std::string& command) {
    Job job;
    job.arguments = command;
    write(job);
    ProcessOptions options = adapter(newTask());
    options.environment.emplace_back("PATH", searchPath);
    return runProcess(options);
  }
};

TEST_F(Program, WithoutAUsableInterpreterIsReported) {
  folder_.write("plain", "", 0644);
  const struct {
    std::string firstLine;
    const char* reason;
  } rows[] = {
      // with CR LF line endings: the CR is part of the interpreter's name
      {"#!/bin/sh\r", "No such file or directory"},
      {"#!/missing/interpreter -x", "No such file or directory"},
      {"#!" + folder(), "Permission denied"},
      {"#!" + folder_.file("plain"), "Permission denied"},
      {"#!" + folder_.file("script"), "Too many levels of symbolic links"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.firstLine);
    folder_.write("script", row.firstLine + "\nexit 0\n", 0755);
    expectNoneExecutes("./script a b", row.reason);
  }
}

TEST_F(Program, ThatIsNotAProgramFileIsReported) {
  ASSERT_EQ(symlink("loop", folder_.file("loop").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", folder_.file("dangling").c_str()), 0);
  ASSERT_EQ(mkfifo(folder_.file("pipe").c_str(), 0755), 0);
  folder_.makeFolder("folder");
  folder_.write("plain", "#!/bin/sh\n", 0644);
  const std::string longName(256, 'n');
  const struct {
    std::string command;
    const char* reason;
  } rows[] = {
      {"./loop x", "Too many levels of symbolic links"},
      {"./dangling x", "No such file or directory"},
      {"./pipe x", "Permission denied"},
      {"./folder x", "Permission denied"},
      {"./plain x", "Permission denied"},
      {"./plain/ x", "Not a directory"},
      {"/dev/null x", "Permission denied"},
      {"./" + longName + " x", "File name too long"},
      {longName + " x", "File name too long"},
  };
  for (const auto& row : rows) expectNoneExecutes(row.command, row.reason);
}

// execvp passes files of unknown format to the shell, as scripts.
TEST_F(Program, OfUnknownFormatIsRunByTheShell) {
  folder_.write("script", "echo \"$0|$1|$2|$#\"\nexit 3\n", 0755);
  const std::string command = "./script \"a b\" c";
  expectResult(runCommand(command),
               calling(command, folder()) + processStarted + "./script|a b|c|2\n", exitCodeLine(3),
               "exit 0");
  expectResult(runWithPath(folder() + ":/bin", "script x"),
               calling("script x", folder()) + processStarted + folder_.file("script") + "|x||1\n",
               exitCodeLine(3), "exit 0");
  folder_.write("empty", "", 0755);
  expectResult(runCommand("./empty x"), calling("./empty x", folder()) + processStarted, "",
               "exit 0");
}

TEST_F(Program, IsSearchedForAlongTheWholePath) {
  const std::string closed = folder_.makeFolder("closed");
  folder_.write("closed/tool", "#!/bin/sh\nexit 0\n", 0644);
  const std::string good = folder_.makeFolder("good");
  folder_.write("good/tool", "#!/bin/sh\necho found\n", 0755);
  const std::string found = calling("tool x", folder()) + processStarted + "found\n";
  const std::string file = folder_.write("file", "");
  expectResult(runWithPath(closed + ":" + good, "tool x"), found, "", "exit 0");
  expectResult(runWithPath("/nowhere:" + file + ":" + good, "tool x"), found, "", "exit 0");
  // An empty folder name means the run folder.
  folder_.write("tool", "#!/bin/sh\necho found\n", 0755);
  expectResult(runWithPath("/nowhere:", "tool x"), found, "", "exit 0");
  // If a program was found but could not be executed, that is reported even if the search
  // continued; otherwise the last reason is.
  expectNotExecuted(runWithPath(closed + ":/nowhere", "tool x"), "tool x", "Permission denied");
  expectNotExecuted(runWithPath(file + ":/nowhere", "tool x"), "tool x",
                    "No such file or directory");
  expectNotExecuted(runWithPath("/nowhere:" + file, "tool x"), "tool x", "Not a directory");
}

TEST_F(Program, ThatIsBeingWrittenIsReported) {
  const std::string program = folder_.file("program");
  std::filesystem::copy_file("/bin/true", program);
  const int writer = open(program.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_NE(writer, -1);
  expectNoneExecutes("./program x", "Text file busy");
  close(writer);
  expectResult(runCommand("./program x"), calling("./program x", folder()) + processStarted, "",
               "exit 0");
}

// The system's limit for arguments and environment together is at least 128 KiB, and exactly that
// with a small stack limit. The environment uses most of it.
TEST_F(Program, WithMoreArgumentsThanTheSystemTakesIsReported) {
  ProcessOptions options = adapter(newTask());
  const std::vector<std::pair<std::string, std::string>> environment = options.environment;
  options.environment.clear();
  options.prepare = [environment] {
    clearenv();
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    setenv("LC_ALL", "C", 1);
    setenv("FILLER", std::string(131072 - 8192, 'x').c_str(), 1);
    const rlimit stack{512 * 1024, 512 * 1024};
    if (setrlimit(RLIMIT_STACK, &stack) != 0) _exit(95);
  };
  // Each word takes two bytes and a pointer.
  std::string command = "/bin/true";
  for (int i = 0; i < 1900; ++i) command += " w";
  expectNoneExecutes(options, Job(), command, "Argument list too long");

  Job job;
  job.arguments = "/bin/true w";
  write(job);
  expectResult(runProcess(options), calling("/bin/true w", folder()) + processStarted, "",
               "exit 0");
}

TEST_F(Program, OnANoexecMountIsReported) {
  REQUIRE_ROOT();
  REQUIRE_MOUNTS();
  script("script", "exit 0");
  ProcessOptions options = adapter(newTask());
  options.prepare = [path = folder()] {
    if (!enterOwnMounts() || mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
        mount(nullptr, path.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_NOEXEC, nullptr) != 0) {
      _exit(95);
    }
  };
  expectNoneExecutes(options, Job(), "./script x", "Permission denied");
  EXPECT_EQ(modeOf(folder_.file("script")), 0755);

  // Nor does chmod help.
  Job job;
  job.arguments = "script x";
  write(job);
  options.arguments.insert(options.arguments.end(), {"-a", folder_.file("tool")});
  expectNotExecuted(runProcess(options), folder_.file("script") + " x", "Permission denied");
}

}  // namespace
}  // namespace runlet_test
