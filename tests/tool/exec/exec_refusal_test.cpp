// Messages and exit statuses of runlet-job exec when it does not become a task.

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "exec_run.h"
#include "mounts.h"
#include "programs.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

constexpr char noFile[] = "No such file or directory";

class ExecRefusal : public ExecTest {
 protected:
  // The job's command, without a WorkingFolder.
  Job job(const std::string& arguments = "/bin/mkdir made") const {
    Job made;
    made.arguments = arguments;
    return made;
  }

  void expectNotMade() const {
    EXPECT_FALSE(std::filesystem::exists(folder_.file("made")));
  }
};

TEST_F(ExecRefusal, OfTheProgramHasAStatusForWhetherItIsFound) {
  folder_.write("text", "exit 0\n", 0644);
  folder_.makeFolder("closed", 0755);
  folder_.write("orphan", "#!/nowhere/sh\n", 0755);
  folder_.write("scheme", "#!" + folder_.file("text") + "\n", 0755);
  ASSERT_EQ(symlink("loop", folder_.file("loop").c_str()), 0);
  const std::string longName(300, 'n');
  const struct {
    std::string command;
    const char* reason;
    const char* status;
  } rows[] = {
      {"./missing x", noFile, "exit 127"},
      {"missing-along-the-path x", noFile, "exit 127"},
      {"missing/program x", noFile, "exit 127"},
      {"\"./missing program\" x", noFile, "exit 127"},
      {"/nowhere/program", noFile, "exit 127"},
      {"./text x", "Permission denied", "exit 126"},
      {"./closed x", "Permission denied", "exit 126"},
      {". x", "Permission denied", "exit 126"},
      {"./closed/", "Permission denied", "exit 126"},
      {"./text/program", "Not a directory", "exit 126"},
      {"./loop", "Too many levels of symbolic links", "exit 126"},
      {"./" + longName, "File name too long", "exit 126"},
      {"./scheme x", "Permission denied", "exit 126"},
      // The system reports the missing interpreter as if the script were missing.
      {"./orphan x", noFile, "exit 127"},
      // No word at all, or an empty one.
      {" ", noFile, "exit 127"},
      {"\"", noFile, "exit 127"},
      {"\"/bin/mkdir made", noFile, "exit 127"},
      {"  \"/bin/mkdir made", noFile, "exit 127"},
      {"\"\" /bin/mkdir made", noFile, "exit 127"},
      {"%%s%%n", noFile, "exit 127"},
  };
  for (const auto& row : rows) {
    for (const char* redirect : {"yes", "no"}) {
      const std::string line = row.command == "%%s%%n" ? "%s%n" : row.command;
      SCOPED_TRACE(line);
      write(job(row.command).set("redirectStderr", redirect));
      expectTool(become(), calling(line, folder()), cannotExecute(line, row.reason), row.status);
    }
  }
  expectNotMade();
}

TEST_F(ExecRefusal, OfAJobWithoutArgumentsIsThatOfAMissingProgram) {
  write(job(""));
  expectTool(become(), calling("", folder()), cannotExecute("", noFile), "exit 127");
}

// An executable file of unknown format is run as a shell script.
TEST_F(ExecRefusal, IsNotForAScriptWithoutAnInterpreter) {
  folder_.write("plain", "echo plain $1\nexit 7\n", 0755);
  expectTool(becomeCommand("./plain x"), calling("./plain x", folder()) + "plain x\n", "",
             "exit 7");
}

TEST_F(ExecRefusal, IsForAMissingTask) {
  Job three = job();
  three.tasks = {"a", "b", "c"};
  write(three);
  for (const char* number : {"0", "-1", "4", "5", "2147483647", "-2147483648"}) {
    expectTool(runProcess(exec({jobFile_, "--task", number})), "",
               noSuchTask(number, jobFile_, "3 tasks"), "exit 125");
  }
  write(job());
  expectTool(become(2), "", noSuchTask("2", jobFile_, "1 task"), "exit 125");
  three.tasks.clear();
  write(three);
  expectTool(become(), "", noSuchTask("1", jobFile_, "0 tasks"), "exit 125");
  expectNotMade();
}

TEST_F(ExecRefusal, IsForAnInvalidCommandLine) {
  write(job());
  const struct {
    Strings words;
    std::string error;
  } rows[] = {
      {{}, "job is required"},
      {{jobFile_}, "--task is required"},
      {{"--task", "1"}, "job is required"},
      {{jobFile_, "--task"}, "--task: 1 required N missing"},
      {{jobFile_, "--task", "1", "-a"}, "-a: 1 required APP missing"},
      {{jobFile_, "--task", "x"}, "Could not convert: --task = x"},
      {{jobFile_, "--task", "1x"}, "Could not convert: --task = 1x"},
      {{jobFile_, "--task", "1.0"}, "Could not convert: --task = 1.0"},
      {{jobFile_, "--task", "1 2"}, "Could not convert: --task = 1 2"},
      {{jobFile_, "--task", "2147483648"}, "Could not convert: --task = 2147483648"},
      {{jobFile_, "--task", "4294967297"}, "Could not convert: --task = 4294967297"},
      {{jobFile_, "--task", "18446744073709551617"},
       "Could not convert: --task = 18446744073709551617"},
      {{jobFile_, "--task", "1", "--task", "1"}, "--task: At Most 1 required but received 2"},
      {{jobFile_, jobFile_, "--task", "1"}, "The following argument was not expected: " + jobFile_},
      {{jobFile_, "--task", "1", "--user"}, "The following argument was not expected: --user"},
      {{jobFile_, "--task", "1", "--keep-env", "A=b"}, "--keep-env: A=b is not a variable name"},
      {{jobFile_, "--task", "1", "--keep-env", ""}, "--keep-env:  is not a variable name"},
      {{jobFile_, "--task", "1", "-u", "root"},
       "The following arguments were not expected: root -u"},
  };
  for (const auto& row : rows) {
    expectTool(runProcess(exec(row.words)), "",
               "runlet-job: " + row.error + "\nSee: runlet-job exec --help\n", "exit 125");
  }
  expectNotMade();
}

TEST_F(ExecRefusal, IsNotForHelp) {
  for (const Strings& words : {Strings{"--help"}, {"-h"}, {jobFile_, "--help", "--task", "1"}}) {
    const ProcessResult result = runProcess(exec(words));
    EXPECT_EQ(
        result.output.find("Replace this process with one task of a job\nUsage: runlet-job exec "),
        0U);
    for (const char* word : {"\n  job JOB ", "\n  --task N ", "\n  -a APP "}) {
      EXPECT_NE(result.output.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  }
}

TEST_F(ExecRefusal, IsForAJobThatCannotBeLoaded) {
  const std::string notLoaded =
      "Runlet adapter: Could not load parameter file " + jobFile_ + ". Error='";
  const std::string syntax = "Runlet adapter: Invalid XML job syntax.\n";
  const std::string braces = "Runlet adapter: Strip brace failed.\n";
  const std::string lists = "<TaskList/><JobParams/></cmdData></Job>";
  const struct {
    std::string text;
    std::string error;
  } rows[] = {
      {"", notLoaded + "Error document empty.'.Exiting.\n"},
      {"<Job>", notLoaded + "Error reading Element value.'.Exiting.\n"},
      {"<Job/>", syntax},
      {"<?xml version=\"1.0\"?>" + job().text(), syntax},
      {"<Job><cmdData><TaskList/></cmdData></Job>", syntax},
      {"<Job><cmdData><uid/>" + lists, syntax},
      {"<Job><cmdData><Arguments>/bin/mkdir made</Arguments>" + lists, braces},
      {"<Job><cmdData><Arguments>{}</Arguments>" + lists, braces},
      {"<Job><cmdData><Arguments>}/bin/mkdir made{</Arguments>" + lists,
       terminateText("std::length_error", "basic_string::_M_replace")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    folder_.write("job.xml", row.text);
    expectTool(become(), "", row.error, "exit 125");
  }
  expectNotMade();
}

TEST_F(ExecRefusal, IsForAMissingJobFile) {
  folder_.makeFolder("in");
  const struct {
    std::string job;
    std::string path;
    const char* reason;
  } rows[] = {
      {"/nowhere/job.xml", "/nowhere/job.xml", "Failed to open file"},
      {"missing.xml", folder_.file("missing.xml"), "Failed to open file"},
      {"./in/../missing %s.xml", folder_.file("./in/../missing %s.xml"), "Failed to open file"},
      {"in", folder_.file("in"), "Is a directory"},
      {".", folder_.file("."), "Is a directory"},
      {"/", "/", "Is a directory"},
  };
  for (const auto& row : rows) {
    ProcessOptions options = exec({row.job, "--task", "1"});
    options.folder = folder();
    expectTool(runProcess(options), "",
               "Runlet adapter: Could not load parameter file " + row.path + ". Error='" +
                   row.reason + "'.Exiting.\n",
               "exit 125");
  }
  expectTool(runProcess(exec({"", "--task", "1"})), "",
             "runlet-job: the path of the job file is empty\n", "exit 125");
}

TEST_F(ExecRefusal, IsForARunFolderThatCannotBeEntered) {
  const std::string file = folder_.write("file", "");
  const std::string closed = folder_.makeFolder("closed", 0600);
  const std::string longName = folder_.file(std::string(300, 'n'));
  const struct {
    std::string path;
    const char* reason;
  } rows[] = {
      {folder_.file("missing"), noFile}, {file, "Not a directory"},
      {longName, "File name too long"},  {"missing/below", noFile},
      {folder_.file("%s%n"), noFile},
  };
  for (const auto& row : rows) {
    write(job().set("WorkingFolder", row.path));
    expectTool(become(), "", cannotEnter(row.path, row.reason) + "\n", "exit 125");
  }
  write(job().set("WorkingFolder", closed));
  expectTool(runProcess(unprivilegedExec(task())), "",
             cannotEnter(closed, "Permission denied") + "\n", "exit 125");
  expectNotMade();
}

// Makes `root` the root folder of this process, with what programs need from the system.
void enterRootFolderWith(const std::string& jobFile, const std::string& root) {
  const auto orExit = [](bool succeeded) {
    if (!succeeded) _exit(95);
  };
  orExit(enterOwnMounts() && mount("none", root.c_str(), "tmpfs", 0, "mode=755") == 0);
  for (const std::string name : {"/usr", "/bin", "/lib", "/lib64", "/proc", "/tmp"}) {
    if (access(name.c_str(), F_OK) != 0) continue;
    orExit(mkdir((root + name).c_str(), 0755) == 0);
    orExit(mount(name.c_str(), (root + name).c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0);
  }
  orExit(symlink(jobFile.c_str(), (root + "/job.xml").c_str()) == 0);
  orExit(chroot(root.c_str()) == 0 && chdir("/") == 0);
}

// As for the adapter: a job file directly in the root folder has no run folder.
TEST_F(ExecRefusal, IsForAJobFileInTheRootFolder) {
  REQUIRE_MOUNTS();
  write(job());
  const std::string root = folder_.makeFolder("root");
  const std::string program = folder_.file("runlet-job");
  std::filesystem::copy_file(toolPath, program);
  for (const char* path : {"job.xml", "/job.xml"}) {
    ProcessOptions options = exec({path, "--task", "1"});
    options.program = program;
    options.prepare = [&] { enterRootFolderWith(jobFile_, root); };
    expectTool(runProcess(options), "", cannotEnter("", noFile) + "\n", "exit 125");
  }
  // Not so one in any subfolder.
  ProcessOptions options = exec({jobFile_.substr(1), "--task", "1"});
  options.program = program;
  options.prepare = [&] { enterRootFolderWith(jobFile_, root); };
  expectTool(runProcess(options), calling("/bin/mkdir made", folder()), "", "exit 0");
}

TEST_F(ExecRefusal, IsForAFillInThatFails) {
  for (const char* arguments :
       {"/bin/mkdir made %t", "/bin/mkdir made %tx", "/bin/mkdir made %3jx", "%4000tp1"}) {
    write(job(arguments));
    for (const Strings& more : {Strings{}, Strings{"-a", folder_.file("x")}}) {
      expectTool(become(1, more), "", "Runlet adapter: Process fill-in for arguments failed.\n",
                 "exit 125");
    }
  }
  expectNotMade();
}

TEST_F(ExecRefusal, IsForAParameterWithoutAValue) {
  Job made = job("/bin/mkdir made %jp2");
  made.params = {{"one", "1"}, {"two", "2"}};
  std::string text = made.text();
  const std::string value = "<Value>{2}</Value>";
  text.erase(text.find(value), value.size());
  folder_.write("job.xml", text);
  expectTool(become(), "",
             terminateText("std::out_of_range",
                           "vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)"),
             "exit 125");
  expectNotMade();
}

// Folder, command, rights: the first failure is reported, and the "Calling" line comes only after
// the command.
TEST_F(ExecRefusal, IsForTheFirstFault) {
  Job made = job("/bin/mkdir made %t");
  made.remove("gid").set("WorkingFolder", "/nowhere");
  write(made);
  expectTool(become(2), "", noSuchTask("2", jobFile_, "1 task"), "exit 125");
  expectTool(become(), "", cannotEnter("/nowhere", noFile) + "\n", "exit 125");
  write(made.remove("WorkingFolder"));
  expectTool(become(), "", "Runlet adapter: Process fill-in for arguments failed.\n", "exit 125");
  made.arguments = "./missing x";
  write(made);
  expectTool(become(), calling("./missing x", folder()), "Cannot set gid -1: No such group\n",
             "exit 125");
}

// The current folder of exec may be deleted: a full path does not need it.
TEST_F(ExecRefusal, IsForARelativePathInAFolderThatIsGone) {
  write(job("/bin/pwd"));
  const std::string gone = folder_.makeFolder("gone");
  const auto leave = [&] {
    if (rmdir(gone.c_str()) != 0) _exit(97);
  };
  ProcessOptions options = exec(task());
  options.folder = gone;
  options.prepare = leave;
  expectTool(runProcess(options), calling("/bin/pwd", folder()) + folder() + "\n", "", "exit 0");

  folder_.makeFolder("gone");
  options.arguments = exec({"job.xml", "--task", "1"}).arguments;
  expectTool(runProcess(options), "",
             "Runlet adapter: Could not load parameter file job.xml. Error='Failed to open "
             "file'.Exiting.\n",
             "exit 125");
}

}  // namespace
}  // namespace runlet_test
