// runlet-job make as a program, and what the adapter does with its jobs.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "adapter_test.h"
#include "mounts.h"
#include "programs.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

class Make : public AdapterTest {
 protected:
  // Runs it in the folder, as a user without findings.
  ProcessResult make(const Strings& arguments, const std::function<void()>& prepare = {}) const {
    ProcessOptions options;
    options.arguments = {toolPath, "make", "--user", "1234", "--group", "4321"};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.folder = folder();
    options.prepare = prepare;
    return runProcess(options);
  }

  // Makes the job file for the user who runs the tests, and runs the tasks of that range.
  ProcessResult makeAndRun(const Strings& arguments, int count) const {
    ProcessOptions options;
    options.arguments = {toolPath, "make", "-o", jobFile_};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    const ProcessResult result = runProcess(options);
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0") << result.error;
    return run(newTask(1, count));
  }

  void expectRefused(const Strings& arguments, const std::string& error, int status) const {
    const ProcessResult result = make(arguments);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, error);
    EXPECT_EQ(describeStatus(result.waitStatus), "exit " + std::to_string(status));
  }

  Strings filesInFolder() const {
    Strings names;
    for (const auto& entry : std::filesystem::directory_iterator(folder())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
};

constexpr char smallestJob[] = R"(<Job>
  <cmdData>
    <Arguments>{run}</Arguments>
    <TaskNameIdx>1</TaskNameIdx>
    <TaskTimeout>35791</TaskTimeout>
    <uid>1234</uid>
    <gid>4321</gid>
    <umask>18</umask>
    <redirectStderr>yes</redirectStderr>
    <TaskList>
      <Task><Params>{task}</Params></Task>
    </TaskList>
    <JobParams>
    </JobParams>
  </cmdData>
</Job>
)";

TEST_F(Make, WritesTheSmallestJob) {
  const ProcessResult result = make({"--", "run"});
  EXPECT_EQ(result.output, smallestJob);
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

constexpr char framesJob[] = R"(<Job>
  <cmdData>
    <Arguments>{/opt/tools/weave --from %tp2 --to %tp3 -s "%jp1" "" [a,b] "two&#32;&#32;spaces" 5" -- -x}</Arguments>
    <WorkingFolder>/srv/loom &amp; co</WorkingFolder>
    <LogFolder>/srv/log</LogFolder>
    <Outputs>/srv/out/%d.png</Outputs>
    <TaskNameIdx>1</TaskNameIdx>
    <TaskTimeout>45</TaskTimeout>
    <uid>1234</uid>
    <gid>4321</gid>
    <umask>7</umask>
    <redirectStderr>no</redirectStderr>
    <TaskList>
      <Task><Params>{frames -3-1&#9;-3&#9;1}</Params></Task>
      <Task><Params>{frames 3-5&#9;3&#9;5}</Params></Task>
      <Task><Params>{frame 90&#9;90&#9;90}</Params></Task>
    </TaskList>
    <JobParams>
      <Param><Name>{pattern}</Name><Value>{/srv/herring bone.pat}</Value></Param>
      <Param><Name>{none}</Name><Value>{}</Value></Param>
      <Param><Name>{[}</Name><Value>{x=1,y=2]&#10;&lt;}}</Value></Param>
    </JobParams>
  </cmdData>
</Job>
)";

TEST_F(Make, WritesAJobOfFrames) {
  const ProcessResult result = make({"--frames",
                                     "-3-5x2,90",
                                     "--chunk",
                                     "3",
                                     "--folder",
                                     "/srv/loom & co",
                                     "--logs",
                                     "/srv/log",
                                     "--outputs",
                                     "/srv/out/%d.png",
                                     "--timeout",
                                     "45",
                                     "--umask",
                                     "007",
                                     "--stderr",
                                     "keep",
                                     "--param",
                                     "pattern=/srv/herring bone.pat",
                                     "--param",
                                     "none=",
                                     "--param",
                                     "[=x=1,y=2]\n<}",
                                     "--",
                                     "/opt/tools/weave",
                                     "--from",
                                     "%tp2",
                                     "--to",
                                     "%tp3",
                                     "-s",
                                     "%jp1",
                                     "",
                                     "[a,b]",
                                     "two  spaces",
                                     "5\"",
                                     "--",
                                     "-x"});
  EXPECT_EQ(result.output, framesJob);
  EXPECT_EQ(
      result.error,
      R"(standard output:3:98: warning RJ071: 5": A double quote inside a word is an ordinary character, and reaches the program.
    Put the quotes around the whole word. [every task]
standard output:20:21: note RJ056: none: No task asks for parameter 2.
    Nothing needs to be done, unless the template was meant to use %jp2.
standard output:21:21: note RJ056: [: No task asks for parameter 3.
    Nothing needs to be done, unless the template was meant to use %jp3.
)");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

constexpr char tasksJob[] = R"(<Job>
  <cmdData>
    <Arguments>{paint %tp2 50% %jp1}</Arguments>
    <TaskNameIdx>1</TaskNameIdx>
    <TaskTimeout>35791</TaskTimeout>
    <uid>1234</uid>
    <gid>4321</gid>
    <umask>18</umask>
    <redirectStderr>yes</redirectStderr>
    <TaskList>
      <Task><Params>{left&#9;A 1}</Params></Task>
      <Task><Params>{right&#9;A&amp;2}</Params></Task>
    </TaskList>
    <JobParams>
    </JobParams>
  </cmdData>
</Job>
)";

TEST_F(Make, WritesAJobFromATaskFileAndReportsTheWarnings) {
  folder_.write("tasks.tsv", "left\tA 1\r\nright\tA&2\r\n");
  const ProcessResult result =
      make({"--tasks", "tasks.tsv", "-o", "job.xml", "--", "paint %tp2 50% %jp1"});
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(
      result.error,
      R"(job.xml:3:30: warning RJ065: %: This % does not begin a placeholder and is dropped, along with the digits after it.
    Write %% for a percent sign. [every task]
job.xml:3:32: warning RJ061: %jp1: The job has 0 parameters; the program gets the text Undefined.
    Write %jp with a number from 1 to the number of parameters. [every task]
)");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  EXPECT_EQ(readFile(jobFile_), tasksJob);
}

TEST_F(Make, RefusesInvalidValues) {
  folder_.write("tasks.tsv", "a\nb\t\n");
  expectRefused({"--frames", "1-9,4", "--", "run"},
                "runlet-job: make: --frames 1-9,4: frame 4 is given twice\n", 1);
  expectRefused({"--frames", "1", "--chunk", "0", "--", "run"},
                "runlet-job: make: --chunk 0: expected a number of frames, at least 1\n", 1);
  expectRefused(
      {"--tasks", "tasks.tsv", "--", "run"},
      "runlet-job: make: tasks.tsv:2: $'b\\011': the last field is empty and would be read "
      "as \"Undefined\"\n",
      1);
  expectRefused({"--param", "{}", "--", "run"},
                "runlet-job: make: --param '{}': expected NAME=VALUE\n", 1);
  expectRefused({"--folder", "", "--", "run"}, "runlet-job: make: --folder '': it is empty\n", 1);
  expectRefused({"--", ""}, "runlet-job: make: COMMAND '': it is empty\n", 1);
  expectRefused({"--", "run", "say \"hi\""},
                "runlet-job: make: COMMAND 'say \"hi\"': it needs double quotes ('say "
                "\"hi\"' in task 1) but contains one itself ('say \"hi\"' in task 1), which would "
                "end the word\n",
                1);
}

TEST_F(Make, RefusesWhatCheckFindsAnErrorIn) {
  const std::string head =
      "runlet-job: make: no job written, since it would not run as intended:\nstandard output:";
  const std::vector<std::pair<Strings, std::string>> rows = {
      {{"--", "run %tq"}, "3:21: error RJ060: %tq: "},
      {{"--", "run", "%tq"}, "3:21: error RJ060: %tq: "},
      {{"--", " "}, "3:17: error RJ074:  : "},
      {{"--", "", "run"}, "3:17: error RJ074: \"\" run: "},
      {{"--", "run", std::string(4000, 'a')}, "3:17: error RJ066: "},
      {{"--frames", "1-2", "--folder", "loom", "--", "run"}, "4:20: error RJ078: loom: "},
  };
  for (const auto& [arguments, finding] : rows) {
    const ProcessResult result = make(arguments);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error.substr(0, head.size() + finding.size()), head + finding);
    EXPECT_TRUE(result.error.ends_with("\n") && !result.error.ends_with("\n\n"));
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  }
}

TEST_F(Make, NeedsAValidCommandLine) {
  const std::string help = "\nSee: runlet-job make --help\n";
  expectRefused({}, "runlet-job: COMMAND is required" + help, 2);
  expectRefused({"--"}, "runlet-job: COMMAND is required" + help, 2);
  expectRefused({"run", "now"}, "runlet-job: The following argument was not expected: now" + help,
                2);
  expectRefused({"--frame", "1", "--", "run"},
                "runlet-job: The following argument was not expected: --frame" + help, 2);
  expectRefused({"--chunk", "2", "--", "run"}, "runlet-job: --chunk requires --frames" + help, 2);
  expectRefused({"--frames", "1", "--tasks", "x", "--", "run"},
                "runlet-job: --frames excludes --tasks" + help, 2);
  expectRefused({"--umask", "0", "--umask", "0", "--", "run"},
                "runlet-job: --umask: At Most 1 required but received 2" + help, 2);
}

TEST_F(Make, ReportsAFileThatCannotBeRead) {
  expectRefused({"--tasks", "none.tsv", "--", "run"},
                "runlet-job: make: --tasks none.tsv: No such file or directory\n", 2);
}

TEST_F(Make, LeavesTheFileAsItWasWhenItRefuses) {
  folder_.write("job.xml", "old");
  expectRefused({"-o", "job.xml", "--frames", "x", "--", "run"},
                "runlet-job: make: --frames x: x: expected FRAME, FIRST-LAST or "
                "FIRST-LASTxSTEP\n",
                1);
  EXPECT_EQ(make({"-o", "job.xml", "--", "run %t"}).output, "");
  EXPECT_EQ(readFile(jobFile_), "old");
  EXPECT_EQ(filesInFolder(), Strings{"job.xml"});
}

TEST_F(Make, LeavesTheFileAsItWasWhenAWriteFails) {
  expectRefused({"-o", "none/job.xml", "--", "run"},
                "runlet-job: make: -o none/job.xml: No such file or directory\n", 2);
  EXPECT_EQ(filesInFolder(), Strings{});
}

TEST_F(Make, LeavesTheFileAsItWasOnAFullDisk) {
  REQUIRE_MOUNTS();
  const std::string disk = folder_.makeFolder("disk");
  ProcessOptions options;
  options.arguments = {
      "/bin/sh", "-c",
      "printf old > job.xml; \"$0\" make --user 1234 -o job.xml --param \"a=$1\" -- run %jp1; "
      "echo $?; ls -A; cat job.xml",
      toolPath, std::string(1999, 'a')};
  for (const char* name : {"b", "c", "d", "e"}) {
    options.arguments[2].insert(options.arguments[2].find(" -- "),
                                std::string(" --param \"") + name + "=$1\"");
  }
  options.prepare = [&] {
    if (!enterOwnMounts() || mount("none", disk.c_str(), "tmpfs", 0, "size=8k") != 0) _exit(95);
    if (chdir(disk.c_str()) != 0) _exit(94);
  };
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(result.output, "2\njob.xml\nold");
  EXPECT_TRUE(result.error.ends_with("\nrunlet-job: make: -o job.xml: No space left on device\n"))
      << result.error;
}

TEST_F(Make, ReportsAFullOutput) {
  const ProcessResult result =
      make({"--", "run"}, [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); });
  EXPECT_EQ(result.error, "runlet-job: cannot write to standard output: No space left on device\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
}

TEST_F(Make, ReportsThatItCannotCheck) {
  const ProcessResult result = make({"--frames", "1-250000", "--", "run"}, [] {
    constexpr rlim_t size = 4 << 20;  // enough for coverage counters
    const rlimit tight{.rlim_cur = size, .rlim_max = size};
    std::signal(SIGXFSZ, SIG_IGN);
    if (setrlimit(RLIMIT_FSIZE, &tight) != 0) _exit(95);
  });
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "runlet-job: make: cannot check the job: File too large\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
}

TEST_F(Make, ReplacesTheFile) {
  folder_.write("job.xml", std::string(9999, 'x'), 0600);
  const ProcessResult result = make({"-o", "job.xml", "--", "run"});
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  EXPECT_EQ(readFile(jobFile_), smallestJob);
  EXPECT_EQ(modeOf(jobFile_), 0600);
  EXPECT_EQ(filesInFolder(), Strings{"job.xml"});
}

TEST_F(Make, JobsAreRunByTheAdapter) {
  folder_.write("tasks.tsv", "left\tA 1\nright\tB  2 <&>\n");
  const ProcessResult result =
      makeAndRun({"--tasks", folder_.file("tasks.tsv"), "--param", "greeting=hello, {you}",
                  "--folder", folder(), "--", "/bin/echo", "%tp1:", "%tp2", "%jp1", "100%%"},
                 2);
  const std::string left = "/bin/echo left: \"A 1\" \"hello, {you}\" 100%";
  const std::string right = "/bin/echo right: \"B  2 <&>\" \"hello, {you}\" 100%";
  expectResult(result,
               calling(left, folder()) + processStarted + "left: A 1 hello, {you} 100%\n" +
                   calling(right, folder()) + processStarted +
                   "right: B  2 <&> hello, {you} 100%\n",
               "", "exit 0");
}

TEST_F(Make, WordsArriveUnchanged) {
  const Strings words = {probePath, folder_.file("report"),
                         "",        "a  b",
                         "[x,y]",   "5\"",
                         "'",       "$HOME;",
                         "-n",      "--",
                         "\t",      "\xc3\xa4",
                         "<&>]]>",  "{}",
                         "a\nb"};
  Strings arguments = {"--umask", "027", "--"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  const ProcessResult result = makeAndRun(arguments, 1);
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(report()["argument"],
            (Strings{probePath, folder_.file("report"), "", "a  b", "[x,y]", "5\"", "'", "$HOME;",
                     "-n", "--", "\\x09", "\\xc3\\xa4", "<&>]]>", "{}", "a\\x0ab"}));
  EXPECT_EQ(report()["Umask:"], Strings{"0027"});
  EXPECT_EQ(report()["folder"], Strings{folder()});
}

}  // namespace
}  // namespace runlet_test
