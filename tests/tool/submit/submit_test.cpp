// runlet-job submit with a fake Slurm that records its calls.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "adapter_test.h"
#include "fake_slurm.h"
#include "tool/slurm/arrays.h"

namespace runlet_test {
namespace {

using Calls = std::vector<std::vector<std::string>>;
using Variables = std::vector<std::pair<std::string, std::string>>;

constexpr char taskScript[] =
    "#!/bin/sh\n"
    "# Each element of the array is a task. Arguments: program, job file, base [, -a, "
    "application]\n"
    "program=$1 job=$2 base=$3\n"
    "shift 3\n"
    "exec \"$program\" exec \"$job\" --task \"$((base + SLURM_ARRAY_TASK_ID))\" \"$@\"\n";

constexpr char chunkScript[] =
    "#!/bin/sh\n"
    "# Each element of the array runs up to $chunk tasks in sequence, none above the last.\n"
    "# Arguments: program, job file, its hash, base, chunk, last [, -a, application]\n"
    "program=$1 job=$2 hash=$3 base=$4 chunk=$5 last=$6\n"
    "shift 6\n"
    "first=$((base + SLURM_ARRAY_TASK_ID * chunk))\n"
    "count=$((last - first + 1))\n"
    "[ \"$count\" -le \"$chunk\" ] || count=$chunk\n"
    "id=$hash:${SLURM_ARRAY_JOB_ID}_$SLURM_ARRAY_TASK_ID\n"
    "exec \"$program\" run \"$job\" -s \"$first\" -n \"$count\" --tell-ends \"$id\" \"$@\"\n";

class Submit : public SubmitTest {
 protected:
  void SetUp() override {
    slurm_.reply("sbatch", "echo 12");
  }

  // How to find an array that may be queued without a known id.
  std::string whereToLook(const std::string& numbers) const {
    return "runlet-job: submit: an array may have been queued nevertheless; before submitting "
           "again, look for " +
           comment(numbers) + " in: squeue --Format=ArrayJobID,Comment:200 '--name=job'\n";
  }

  ProcessOptions withFault(const std::string& fault) const {
    ProcessOptions options = submit({});
    options.environment.insert(options.environment.end(),
                               {{"LD_PRELOAD", faultsPath},
                                {"RUNLET_FAULT", fault},
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    return options;
  }

  // Removes all environment variables except these.
  static void haveOnly(const Variables& variables) {
    clearenv();
    for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
  }

  // Asserts which of these variables and a PATH sbatch receives, sorted, except for those that its
  // shell adds.
  void expectEnvironment(ProcessOptions options, Variables variables,
                         const std::string& expected) const {
    const std::string file = folder_.write("environment", "", 0666);
    slurm_.reply("sbatch",
                 "/usr/bin/env | LC_ALL=C /usr/bin/sort | "
                 "/bin/grep -Ev '^(PWD|OLDPWD|SHLVL|_|__LLVM_PROFILE_RT_INIT_ONCE)=' > '" +
                     file + "'; echo 12");
    variables.emplace_back("PATH", slurm_.path());
    options.prepare = [variables, become = options.prepare] {
      haveOnly(variables);
      if (become) become();
    };
    EXPECT_EQ(runProcess(options).output, "12\n");
    EXPECT_EQ(readFile(file), expected);
  }

  // The arguments of sbatch when the verb is run with `arguments`.
  std::vector<std::string> sbatchArguments(const std::vector<std::string>& arguments) const {
    const std::size_t before = slurm_.calls("sbatch").size();
    const ProcessResult result = run(arguments);
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0") << result.error;
    const Calls calls = slurm_.calls("sbatch");
    return calls.size() == before + 1 ? calls.back() : std::vector<std::string>{};
  }
};

// `words` with `more` inserted before the first `place`.
std::vector<std::string> with(std::vector<std::string> words, const std::vector<std::string>& more,
                              const std::string& place = "/dev/stdin") {
  words.insert(std::find(words.begin(), words.end(), place), more.begin(), more.end());
  return words;
}

// `words` with the one that begins with `beginning` replaced, or removed if `word` is empty.
std::vector<std::string> replaced(std::vector<std::string> words, const std::string& beginning,
                                  const std::string& word) {
  for (std::string& each : words) {
    if (each.starts_with(beginning)) each = word;
  }
  std::erase(words, "");
  return words;
}

// The words that begin with one of the options.
std::vector<std::string> only(const std::vector<std::string>& words,
                              const std::vector<std::string>& options) {
  std::vector<std::string> found;
  for (const std::string& word : words) {
    for (const std::string& option : options) {
      if (word.starts_with(option)) found.push_back(word);
    }
  }
  return found;
}

TEST_F(Submit, SubmitsTheTasksAsAnArrayAndPrintsItsId) {
  write(quietJob(12));
  expectSubmit({}, "12\n", "", "exit 0");
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{plainArguments("1-12", 12, 12)});
  EXPECT_EQ(slurm_.input("sbatch", 1), taskScript);
  EXPECT_EQ(slurm_.calls("scontrol"), (Calls{{"show", "config"}}));
  for (const char* program : {"squeue", "sacct", "scancel"}) {
    EXPECT_EQ(slurm_.calls(program), Calls{}) << program;
  }
}

TEST_F(Submit, TakesARangeOfTheTasks) {
  write(quietJob(12));
  const std::vector<std::string> arguments = sbatchArguments({"-s", "9", "-n", "7"});
  EXPECT_EQ(arguments, replaced(plainArguments("9-12", 4, 12), "--array", "--array=9-12"));
  EXPECT_EQ(only(sbatchArguments({"-s", "0", "-n", "3"}), {"--array"}),
            (std::vector<std::string>{"--array=1-2"}));
  expectSubmit({"-s", "13"}, "",
               "runlet-job: submit: no task in that range: " + jobFile_ + " has 12 tasks\n",
               "exit 1");
}

TEST_F(Submit, PassesItsOptionsOn) {
  write(quietJob(2));
  const std::vector<std::string> expected =
      with(replaced(plainArguments("1-2", 2, 2), "--array", "--array=1-2%3"),
           {"--partition=long", "--mem=4G", "-x", "--mem=5G", "-p[a,b]"});
  std::vector<std::string> withApp = expected;
  withApp.insert(withApp.end(), {"-a", "/opt/tool/a b"});
  EXPECT_EQ(sbatchArguments({"--throttle", "3", "--sbatch-option", "--mem=4G", "--partition",
                             "long", "-a", "/opt/tool/a b", "--sbatch-option=-x", "--sbatch-option",
                             "--mem=5G", "--sbatch-option", "-p[a,b]"}),
            withApp);
  EXPECT_EQ(sbatchArguments({"-a", "-x"}).back(), "-x");
}

TEST_F(Submit, PassesTheTimeLimitOn) {
  const std::vector<std::vector<std::string>> rows = {
      {"", "", ""},
      {"0", "", ""},
      {"-3", "", ""},
      {"7", "--time=7", "--time=28"},
      {"35791", "--time=35791", "--time=143164"},
      {"2147483647", "--time=2147483647", "--time=2147483647"},
  };
  for (const std::vector<std::string>& row : rows) {
    Job job = quietJob(2);
    write(row[0].empty() ? job.remove("TaskTimeout") : job.set("TaskTimeout", row[0]));
    const auto expected = [](const std::string& word) {
      return word.empty() ? std::vector<std::string>{} : std::vector<std::string>{word};
    };
    EXPECT_EQ(only(sbatchArguments({}), {"--time"}), expected(row[1])) << row[0];
    EXPECT_EQ(only(sbatchArguments({"--chunk", "4"}), {"--time"}), expected(row[2])) << row[0];
  }
}

TEST_F(Submit, CombinesSeveralTasksIntoOneElement) {
  Job job = quietJob(27);
  write(job);
  const std::vector<std::string> arguments =
      sbatchArguments({"--chunk", "4", "-s", "6", "-n", "20", "-a", "/app/x"});
  std::vector<std::string> expected = plainArguments("1-6", 0, 27);
  expected = replaced(expected, "--comment", "--comment=" + comment("2:4:25:5"));
  expected = replaced(expected, "--array", "--array=1-5");
  expected = replaced(expected, "--output", "--output=" + folder_.file("job-chunk-%1a.log"));
  expected = replaced(expected, "--time", "--time=20");
  expected.back() = runlet_tool::jobHash(jobFile_);
  expected.insert(expected.end(), {"2", "4", "25", "-a", "/app/x"});
  EXPECT_EQ(arguments, expected);
  EXPECT_EQ(slurm_.input("sbatch", 1), chunkScript);
}

TEST_F(Submit, OfChunksOfOneTaskIsAsWithoutChunks) {
  write(quietJob(3));
  EXPECT_EQ(sbatchArguments({"--chunk", "1"}), plainArguments("1-3", 3, 3));
}

TEST_F(Submit, SplitsWhatIsTooMuchForAnArray) {
  write(quietJob(12));
  slurm_.reply("scontrol", "echo 'MaxArraySize            = 11'");
  slurm_.reply("sbatch", 2, "echo 14");
  expectSubmit({"-s", "8", "-n", "5"}, "12\n14\n", "", "exit 0");
  std::vector<std::string> first = plainArguments("8-9", 2, 12);
  first = replaced(first, "--output", "--output=" + folder_.file("job-0%1a.log"));
  std::vector<std::string> second = plainArguments("0-2", 3, 12);
  second = replaced(second, "--comment", "--comment=" + comment("10:1:12:3"));
  second = replaced(second, "--output", "--output=" + folder_.file("job-1%1a.log"));
  second.back() = "10";
  EXPECT_EQ(slurm_.calls("sbatch"), (Calls{first, second}));
  EXPECT_EQ(slurm_.input("sbatch", 2), taskScript);
}

TEST_F(Submit, HasNoElementInTheNamesOfLogsIfItIsAlwaysTheSame) {
  write(quietJob(2));
  slurm_.reply("scontrol", "echo 'MaxArraySize = 2'");
  run({});
  ASSERT_EQ(slurm_.calls("sbatch").size(), 2U);
  EXPECT_EQ(only(slurm_.calls("sbatch")[1], {"--output", "--array"}),
            (std::vector<std::string>{"--array=0", "--output=" + folder_.file("job-2.log")}));
}

TEST_F(Submit, TakesSlurmsDefaultIfTheMaximumArraySizeIsUnknown) {
  write(quietJob(1001));
  for (const char* reply : {"exit 1", "echo nothing", "echo 'MaxArraySize = lots'"}) {
    slurm_.reply("scontrol", reply);
    const std::size_t before = slurm_.calls("sbatch").size();
    run({});
    const Calls calls = slurm_.calls("sbatch");
    ASSERT_EQ(calls.size(), before + 2) << reply;
    EXPECT_EQ(only(calls[before], {"--array"}), (std::vector<std::string>{"--array=1-999"}));
    EXPECT_EQ(only(calls[before + 1], {"--array"}), (std::vector<std::string>{"--array=0-1"}));
  }
  slurm_.remove("scontrol");
  EXPECT_EQ(describeStatus(run({}).waitStatus), "exit 0");
}

TEST_F(Submit, RunsTheTasksInTheirFolder) {
  const std::string run = folder_.makeFolder("a place");
  write(quietJob(1).set("WorkingFolder", run));
  EXPECT_EQ(only(sbatchArguments({}), {"--chdir", "--output"}),
            (std::vector<std::string>{"--output=" + run + "/job-%1a.log", "--chdir=" + run}));
}

// The element starts there, and enters the folder itself.
TEST_F(Submit, StartsTheTasksOfARelativeFolderInTheCurrentOne) {
  folder_.makeFolder("here");
  folder_.makeFolder("here/below");
  write(quietJob(1).set("WorkingFolder", "below"));
  ProcessOptions options = submit({});
  options.folder = folder_.file("here");
  options.arguments[2] = "../job.xml";
  runProcess(options);
  ASSERT_EQ(slurm_.calls("sbatch").size(), 1U);
  const std::vector<std::string> arguments = slurm_.calls("sbatch")[0];
  EXPECT_EQ(only(arguments, {"--chdir", "--output"}),
            (std::vector<std::string>{"--output=" + folder_.file("here/below/job-%1a.log"),
                                      "--chdir=" + folder_.file("here")}));
  EXPECT_EQ(arguments[arguments.size() - 2], folder_.file("here/../job.xml"));
}

TEST_F(Submit, MakesTheLogFolder) {
  write(quietJob(1).set("LogFolder", "logs/of it"));
  EXPECT_EQ(only(sbatchArguments({}), {"--output"}),
            (std::vector<std::string>{"--output=" + folder_.file("logs/of it/job-%1a.log")}));
  EXPECT_TRUE(std::filesystem::is_directory(folder_.file("logs/of it")));
}

TEST_F(Submit, IsRefusedIfNoLogsCanBeWritten) {
  folder_.write("logs", "a file");
  write(quietJob(1).set("LogFolder", "logs"));
  expectSubmit(
      {}, "",
      "runlet-job: submit: cannot write logs to " + folder_.file("logs") + ": Not a directory\n",
      "exit 2");
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{});
}

TEST_F(Submit, IsRefusedForALogFolderThatSbatchDoesNotSupport) {
  const std::string logs = folder_.file("lo\\gs");
  write(quietJob(1).set("LogFolder", logs));
  const std::string error =
      "runlet-job: submit: sbatch does not support a backslash in the log folder: " + logs + "\n";
  expectSubmit({}, "", error, "exit 1");
  expectSubmit({"--dry-run"}, "", error, "exit 1");
  EXPECT_FALSE(std::filesystem::exists(logs));
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{});
}

TEST_F(Submit, DoesNothingForAJobThatIsRefused) {
  folder_.write("job.xml", "<Job><cmdData></cmdData></Job>");
  const ProcessResult refused = run({});
  EXPECT_EQ(refused.output, "");
  EXPECT_NE(refused.error.find("error RJ006"), std::string::npos) << refused.error;
  EXPECT_EQ(describeStatus(refused.waitStatus), "exit 1");
  write(quietJob(1).set("uid", "ann"));
  expectTool(run({}), "",
             jobFile_ +
                 ":7:6: error RJ034: ann: This is not a number and is read as 0: root.\n"
                 "    Write the number of the user.\n" +
                 jobFile_ + ": 1 task, 1 error\n",
             "exit 1");
  std::filesystem::remove(jobFile_);
  EXPECT_EQ(describeStatus(run({}).waitStatus), "exit 2");
  for (const char* program : {"sbatch", "scontrol"}) EXPECT_EQ(slurm_.calls(program), Calls{});
}

TEST_F(Submit, RunsTheTasksAsTheJobsUser) {
  REQUIRE_ROOT();
  const std::string id = std::to_string(otherId);
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0777));
  write(quietJob(1).set("uid", id).set("gid", id).set("LogFolder", "logs"));
  const ProcessResult result = run({"--partition", "long", "--sbatch-option=-x"});
  expectTool(result, "12\n", "", "exit 0");
  std::vector<std::string> expected =
      with(plainArguments("1", 1, 1), {"--partition=long", "--uid=" + id, "--gid=" + id, "-x"});
  expected = replaced(expected, "--output", "--output=" + folder_.file("logs/job-%1a.log"));
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{expected});
  struct stat logs = {};
  ASSERT_EQ(stat(folder_.file("logs").c_str(), &logs), 0);
  EXPECT_EQ(logs.st_uid, otherId);
}

TEST_F(Submit, NamesUserAndGroupIfEitherDiffers) {
  REQUIRE_ROOT();
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0777));
  write(quietJob(1).set("gid", "-2"));
  EXPECT_EQ(only(sbatchArguments({}), {"--uid", "--gid"}),
            (std::vector<std::string>{"--uid=0", "--gid=4294967294"}));
  write(quietJob(1).set("uid", "-2"));
  EXPECT_EQ(only(sbatchArguments({}), {"--uid", "--gid"}),
            (std::vector<std::string>{"--uid=4294967294", "--gid=0"}));
}

TEST_F(Submit, SaysOnceThatOnlyRootCanSwitch) {
  folder_.makeFolder("logs", 0777);
  write(quietJob(2).set("uid", "4321").set("gid", "4322").set("LogFolder", "logs"));
  const ProcessOptions options = unprivileged({});
  const ProcessResult result = runProcess(options);
  const std::string user = std::to_string(geteuid() == 0 ? otherId : geteuid());
  const std::string group = std::to_string(geteuid() == 0 ? otherId : getegid());
  expectTool(result, "12\n",
             "runlet-job: submit: the tasks run as user " + user + " and group " + group +
                 " instead of the job's user 4321 and group 4322: only root can switch\n",
             "exit 0");
  ASSERT_EQ(slurm_.calls("sbatch").size(), 1U);
  EXPECT_EQ(only(slurm_.calls("sbatch")[0], {"--uid", "--gid"}), std::vector<std::string>{});
}

TEST_F(Submit, PassesOnWhatSlurmSays) {
  write(quietJob(1));
  slurm_.reply("sbatch", "echo 'sbatch: no account given' >&2; echo '12;lab'");
  expectSubmit({}, "12\n", "sbatch: no account given\n", "exit 0");
  slurm_.reply("sbatch", "echo 'sbatch: error: no' >&2; exit 3");
  expectSubmit({}, "", "sbatch: error: no\nrunlet-job: submit: sbatch failed with exit code 3\n",
               "exit 2");
  slurm_.reply("sbatch", "printf 'job\\033 12\\n'");
  expectSubmit({}, "",
               "runlet-job: submit: unexpected output from sbatch: $'job\\033 12\\012'\n" +
                   whereToLook("0:1:1:1"),
               "exit 2");
  slurm_.remove("sbatch");
  expectSubmit({}, "", "runlet-job: submit: cannot run sbatch: No such file or directory\n",
               "exit 2");
}

// It may have ended after Slurm queued the array.
TEST_F(Submit, SaysThatAnArrayMayBeQueuedIfSbatchIsKilled) {
  write(quietJob(1));
  slurm_.reply("sbatch", "kill -9 $$");
  expectSubmit({}, "",
               "runlet-job: submit: sbatch killed by signal 9 (Killed)\n" + whereToLook("0:1:1:1"),
               "exit 2");
  EXPECT_EQ(slurm_.calls("scancel"), Calls{});
  slurm_.reply("sbatch", "echo '12;lab'; kill -9 $$");
  expectSubmit({}, "",
               "runlet-job: submit: sbatch killed by signal 9 (Killed)\n"
               "runlet-job: submit: the arrays submitted so far have been cancelled\n",
               "exit 2");
  EXPECT_EQ(slurm_.calls("scancel"), (Calls{{"12", "--clusters=lab"}}));
}

TEST_F(Submit, SaysThatAnArrayMayBeQueuedIfTheResultIsLost) {
  write(quietJob(20));
  slurm_.reply("sbatch", "echo 12; echo no room >&2");
  expectTool(
      runProcess(withFault("lost-answers")), "",
      withWarning("runlet-job: submit: cannot get the result of sbatch: Input/output error\n" +
                  whereToLook("0:1:20:20")),
      "exit 2");
  EXPECT_EQ(slurm_.calls("sbatch").size(), 1U);
  EXPECT_EQ(slurm_.calls("scancel"), Calls{});
}

TEST_F(Submit, CancelsAnArrayWhoseSubmissionMayNotHaveEnded) {
  write(quietJob(1));
  expectTool(runProcess(withFault("lost-ends")), "",
             withWarning(
                 "runlet-job: submit: cannot get the result of sbatch: No child processes\n"
                 "runlet-job: submit: cannot cancel array 12: cannot get the result of scancel: No "
                 "child processes\n"),
             "exit 2");
  EXPECT_EQ(slurm_.calls("scancel"), (Calls{{"12"}}));
  slurm_.reply("sbatch", "");
  expectTool(
      runProcess(withFault("lost-ends")), "",
      withWarning("runlet-job: submit: cannot get the result of sbatch: No child processes\n" +
                  whereToLook("0:1:1:1")),
      "exit 2");
}

TEST_F(Submit, ReportsThatItCannotCreateAProcessForSbatch) {
  write(quietJob(1));
  expectTool(
      runProcess(withFault("no-process")), "",
      withWarning("runlet-job: submit: cannot run sbatch: Resource temporarily unavailable\n"),
      "exit 2");
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{});
}

// Whatever was lost, the command does not retry.
TEST_F(Submit, IsNotRetriedForTheFailedTasksOfAnArray) {
  write(quietJob(2));
  slurm_.reply("squeue", 1, "echo '" + comment("0:1:2:2") + "'");
  slurm_.reply("squeue", "echo 9 1 FAILED 256; echo 9 2 COMPLETED 0");
  slurm_.reply("sbatch", "kill -9 $$");
  expectSubmit({"--failed-of", "9"}, "",
               "runlet-job: submit: sbatch killed by signal 9 (Killed)\n" + whereToLook("0:1:1:1"),
               "exit 2");
  EXPECT_EQ(slurm_.calls("sbatch").size(), 1U);
}

TEST_F(Submit, LeavesNothingIfALaterArrayIsRefused) {
  write(quietJob(20));
  slurm_.reply("scontrol", "echo 'MaxArraySize = 10'");
  slurm_.reply("sbatch", 2, "echo '13;lab'");
  slurm_.reply("sbatch", 3, "echo 'sbatch: error: no' >&2; exit 1");
  expectSubmit({}, "",
               "sbatch: error: no\nrunlet-job: submit: sbatch failed with exit code 1\n"
               "runlet-job: submit: the arrays submitted so far have been cancelled\n",
               "exit 2");
  EXPECT_EQ(slurm_.calls("sbatch").size(), 3U);
  EXPECT_EQ(slurm_.calls("scancel"), (Calls{{"12"}, {"13", "--clusters=lab"}}));
}

TEST_F(Submit, SaysWhatCannotBeCancelled) {
  write(quietJob(20));
  slurm_.reply("scontrol", "echo 'MaxArraySize = 10'");
  slurm_.reply("sbatch", 2, "echo 13");
  slurm_.reply("sbatch", 3, "exit 1");
  slurm_.reply("scancel", 1, "echo 'scancel: error: busy' >&2; echo more >&2; exit 1");
  expectSubmit({}, "",
               "runlet-job: submit: sbatch failed with exit code 1\n"
               "runlet-job: submit: cannot cancel array 12: scancel: error: busy\n",
               "exit 2");
  slurm_.reply("sbatch", 5, "exit 1");
  slurm_.reply("scancel", 3, "exit 4");
  expectSubmit({}, "",
               "runlet-job: submit: sbatch failed with exit code 1\n"
               "runlet-job: submit: cannot cancel array 12: scancel failed with exit code 4\n",
               "exit 2");
  EXPECT_EQ(slurm_.calls("scancel"), (Calls{{"12"}, {"13"}, {"12"}}));
}

TEST_F(Submit, CancelsWhatItHasSubmittedWhenItIsInterrupted) {
  write(quietJob(20));
  slurm_.reply("scontrol", "echo 'MaxArraySize = 10'");
  slurm_.reply("sbatch", 2, "kill -INT $PPID; echo 13");
  expectSubmit({}, "", "runlet-job: submit: the arrays submitted so far have been cancelled\n",
               "signal 2");
  EXPECT_EQ(slurm_.calls("sbatch").size(), 2U);
  EXPECT_EQ(slurm_.calls("scancel"), (Calls{{"12"}, {"13"}}));
}

TEST_F(Submit, ContinuesAfterASignalThatItWasStartedToIgnore) {
  write(quietJob(1));
  slurm_.reply("sbatch", "kill -HUP $PPID; echo 12");
  ProcessOptions options = submit({});
  options.prepare = [] { std::signal(SIGHUP, SIG_IGN); };
  expectTool(runProcess(options), "12\n", withWarning(""), "exit 0");
  EXPECT_EQ(slurm_.calls("scancel"), Calls{});
}

// They would make sbatch wait, or cancel only part of the array.
TEST_F(Submit, WithholdsVariablesThatChangeTheRequest) {
  write(quietJob(20));
  slurm_.reply("scontrol", "echo 'MaxArraySize = 20'");
  slurm_.reply("sbatch",
               "printf '%s|' \"$SBATCH_WAIT\" \"$SBATCH_WAIT_ALL_NODES\" "
               "\"$SBATCH_QOS\" >&2; echo 12");
  slurm_.reply("sbatch", 2, "exit 1");
  slurm_.reply("scancel", "printf '%s|' \"$SBATCH_WAIT\" \"$SCANCEL_NAME\" >&2; exit 1");
  ProcessOptions options = submit({});
  options.environment.insert(options.environment.end(), {{"SBATCH_WAIT", "1"},
                                                         {"SBATCH_WAIT_ALL_NODES", "0"},
                                                         {"SBATCH_QOS", "low"},
                                                         {"SCANCEL_NAME", "name"}});
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(result.error, withWarning("|0|low|runlet-job: submit: sbatch failed with exit code 1\n"
                                      "runlet-job: submit: cannot cancel array 12: 1||\n"));
}

TEST_F(Submit, SubmitsNothingInADryRun) {
  write(quietJob(2).set("LogFolder", "logs"));
  std::string command = "(umask 0022\n";
  if (geteuid() == 0) {
    command += "/usr/bin/env -i 'HOME=" + std::string(getpwuid(0)->pw_dir) +
               "' 'LOGNAME=root' 'PATH=" + slurm_.path() + "' 'SHELL=" + getpwuid(0)->pw_shell +
               "' 'USER=root' ";
  }
  command += "sbatch --parsable '--comment=" + comment("0:1:2:2") +
             "' '--job-name=job' '--array=1-2' " +
             "--requeue '--open-mode=truncate' '--output=" + folder_.file("logs/job-%1a.log") +
             "' '--chdir=" + folder_.path() + "' '--time=5' /dev/stdin " + ownPath() + " " +
             jobFile_ + " 0 <<'END'\n" + taskScript + "END\n)\n";
  ProcessOptions options = submit({"--dry-run"});
  options.prepare = [this] { haveOnly({{"PATH", slurm_.path()}}); };
  expectTool(runProcess(options), command, withWarning(""), "exit 0");
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{});
  EXPECT_FALSE(std::filesystem::exists(folder_.file("logs")));
}

// Every kind of variable that is passed on, and some that are not.
const Variables variablesOfRoot = {{"HOME", "/root"},
                                   {"LANG", "C"},
                                   {"LANGUAGE", "en"},
                                   {"LC_ALL", "C"},
                                   {"LC_TIME", "C"},
                                   {"LD_LIBRARY_PATH", "/root/lib"},
                                   {"LOGNAME", "root"},
                                   {"PATHS", "/root"},
                                   {"SBATCH_QOS", "night"},
                                   {"SBATCH_WAIT", "1"},
                                   {"SECRET_TOKEN", "x"},
                                   {"SLURM_CLUSTERS", "lab"},
                                   {"SLURM_CONF", "/etc/slurm.conf"},
                                   {"SLURM_JWT", "x"},
                                   {"SLURM_UMASK", "0000"},
                                   {"TZ", "UTC"},
                                   {"USER", "root"}};

TEST_F(Submit, PassesOnOnlyWhatTasksMaySeeOfRootsEnvironment) {
  REQUIRE_ROOT();
  write(quietJob(1).set("uid", std::to_string(otherId)));
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0777));
  const passwd* const user = getpwuid(otherId);
  ASSERT_NE(user, nullptr);
  expectEnvironment(
      submit({}), variablesOfRoot,
      std::string("HOME=") + user->pw_dir + "\nLANG=C\nLANGUAGE=en\nLC_ALL=C\n" +
          "LC_TIME=C\nLOGNAME=" + user->pw_name + "\nPATH=" + slurm_.path() +
          "\nSBATCH_QOS=night\nSHELL=" + user->pw_shell +
          "\nSLURM_CLUSTERS=lab\nSLURM_CONF=/etc/slurm.conf\nTZ=UTC\nUSER=" + user->pw_name + "\n");
}

TEST_F(Submit, PassesOnTheNamedVariablesOfRoot) {
  REQUIRE_ROOT();
  write(quietJob(1));
  const passwd* const user = getpwuid(0);
  expectEnvironment(
      submit({"--keep-env", "LICENCE", "--keep-env", "HOME", "--keep-env=NONE", "--keep-env=LIC"}),
      {{"HOME", "/opt"}, {"LICENCE", "27000@server"}, {"OTHER", "x"}},
      "HOME=/opt\nLICENCE=27000@server\nLOGNAME=root\nPATH=" + slurm_.path() +
          "\nSHELL=" + user->pw_shell + "\nUSER=root\n");
}

TEST_F(Submit, NamesAnUnknownUserByNumber) {
  REQUIRE_ROOT();
  uid_t unknown = 61234;
  while (getpwuid(unknown) != nullptr) ++unknown;
  write(quietJob(1).set("uid", std::to_string(unknown)));
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0777));
  const std::string name = std::to_string(unknown);
  expectEnvironment(submit({}), {{"HOME", "/root"}},
                    "HOME=/\nLOGNAME=" + name + "\nPATH=" + slurm_.path() +
                        "\nSHELL=/bin/sh\nUSER=" + name + "\n");
}

TEST_F(Submit, PassesOnTheEnvironmentOfAnybodyElse) {
  folder_.makeFolder("logs", 0777);
  write(quietJob(1).set("LogFolder", "logs"));
  const std::string expected = "HOME=/home/x\nPATH=" + slurm_.path() + "\nSECRET_TOKEN=x\n";
  expectEnvironment(
      unprivileged({"--keep-env", "OTHER"}),
      {{"HOME", "/home/x"}, {"SBATCH_WAIT", "1"}, {"SECRET_TOKEN", "x"}, {"SLURM_UMASK", "0"}},
      expected);
}

TEST_F(Submit, HasLogsMadeUnderTheJobsMask) {
  slurm_.reply("sbatch", "umask >&2; echo 12");
  const std::pair<const char*, const char*> rows[] = {
      {"0", "0022"},  {"18", "0022"},  {"63", "0077"},
      {"23", "0027"}, {"511", "0777"}, {"-1", "0777"},
  };
  for (const auto& [mask, expected] : rows) {
    write(quietJob(1).set("umask", mask));
    const std::string error = run({}).error;
    EXPECT_EQ(error.substr(error.find_last_of('\n', error.size() - 2) + 1),
              std::string(expected) + "\n")
        << mask;
  }
}

// Any text of a user: neither the program nor a shell misinterprets it.
class HostileSubmit : public Submit {
 protected:
  void SetUp() override {
    Submit::SetUp();
    std::filesystem::create_directory(folder_.file(hostile));
    jobFile_ = folder_.file(std::string(hostile) + "/-" + hostile + ".xml");
  }

  void writeHostile(int taskCount) const {
    folder_.write(std::string(hostile) + "/-" + hostile + ".xml",
                  quietJob(taskCount).set("LogFolder", folder_.file("%a%%j $(x)'l")).text());
  }

  static constexpr char hostile[] = "a 'b\" $(touch x)`y`\n%a%%j;&#!\\*~-x";
};

TEST_F(HostileSubmit, IsPassedOnUnchanged) {
  writeHostile(2);
  const std::vector<std::string> arguments = sbatchArguments({"-a", "/opt/x $(y)\nEND\n'\\"});
  const std::string name = "-a 'b\" $(touch x)`y`_%a%%j;&#!_*~-x";
  const std::string inPattern = "-a 'b\" $(touch x)`y`_%%a%%%%j;&#!_*~-x";
  EXPECT_EQ(only(arguments, {"--job-name", "--output", "--chdir"}),
            (std::vector<std::string>{
                "--job-name=" + name,
                "--output=" + folder_.file("%%a%%%%j $(x)'l/") + inPattern + "-%1a.log",
                "--chdir=" + folder_.file(hostile)}));
  const std::vector<std::string> last(arguments.end() - 6, arguments.end());
  EXPECT_EQ(last, (std::vector<std::string>{"/dev/stdin", ownPath(), jobFile_, "0", "-a",
                                            "/opt/x $(y)\nEND\n'\\"}));
}

TEST_F(HostileSubmit, IsTheSameWhenAShellRunsWhatWasPrinted) {
  writeHostile(25);
  slurm_.reply("scontrol", "echo 'MaxArraySize = 11'");
  const std::vector<std::string> options = {"-a",
                                            "/opt/x $(y)\nEND\n'\\",
                                            "--sbatch-option",
                                            "--mem=$X 'y\n",
                                            "--partition",
                                            "p\xff'\t",
                                            "--throttle",
                                            "2"};
  EXPECT_EQ(describeStatus(run(options).waitStatus), "exit 0");
  std::vector<std::string> dry = options;
  dry.push_back("--dry-run");
  const ProcessResult printed = run(dry);
  EXPECT_EQ(slurm_.calls("sbatch").size(), 3U);
  ProcessOptions shell;
  shell.arguments = {"/bin/bash", folder_.write("printed", printed.output)};
  shell.environment = {{"PATH", slurm_.path()}};
  expectTool(runProcess(shell), "12\n12\n12\n", "", "exit 0");
  const Calls calls = slurm_.calls("sbatch");
  ASSERT_EQ(calls.size(), 6U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(calls[i + 3], calls[i]);
    const int number = static_cast<int>(i) + 1;
    EXPECT_EQ(slurm_.input("sbatch", number + 3), slurm_.input("sbatch", number));
  }
}

// The scripts themselves, with a program that only prints its arguments.
class ScriptOfSubmit : public Submit {
 protected:
  std::string runScript(const std::string& script, const std::string& element,
                        const std::vector<std::string>& arguments) const {
    ProcessOptions options;
    const std::string program =
        folder_.write("a program", "#!/bin/sh\nprintf '<%s>' \"$@\"\n", 0755);
    options.arguments = {"/bin/sh", folder_.write("script", script), program};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.environment = {{"SLURM_ARRAY_JOB_ID", "12"}, {"SLURM_ARRAY_TASK_ID", element}};
    const ProcessResult result = runProcess(options);
    EXPECT_EQ(result.error, "");
    return result.output;
  }
};

TEST_F(ScriptOfSubmit, BecomesTheTask) {
  EXPECT_EQ(runScript(taskScript, "7", {"/a b/'$x\n.xml", "0"}),
            "<exec></a b/'$x\n.xml><--task><7>");
  EXPECT_EQ(runScript(taskScript, "7", {"/j", "2147483000", "-a", "-x y"}),
            "<exec></j><--task><2147483007><-a><-x y>");
}

TEST_F(ScriptOfSubmit, RunsTheTasksOfAChunkButNoneAboveTheLast) {
  EXPECT_EQ(runScript(chunkScript, "0", {"/a b", "f0", "3", "5", "17"}),
            "<run></a b><-s><3><-n><5><--tell-ends><f0:12_0>");
  EXPECT_EQ(runScript(chunkScript, "2", {"/j", "f0", "3", "5", "17"}),
            "<run></j><-s><13><-n><5><--tell-ends><f0:12_2>");
  EXPECT_EQ(runScript(chunkScript, "2", {"/j", "f0", "3", "5", "16", "-a", "x"}),
            "<run></j><-s><13><-n><4><--tell-ends><f0:12_2><-a><x>");
  EXPECT_EQ(runScript(chunkScript, "0", {"/j", "f0", "3", "2147483647", "3"}),
            "<run></j><-s><3><-n><1><--tell-ends><f0:12_0>");
}

struct WrongCase {
  std::vector<std::string> arguments;
  std::string error;
};

TEST_F(Submit, RefusesAnInvalidCommandLine) {
  write(quietJob(3));
  const WrongCase cases[] = {
      {{"--throttle", "0"}, "--throttle: " + notPositive("0")},
      {{"--chunk", "0"}, "--chunk: " + notPositive("0")},
      {{"--chunk", "2147483648"}, "--chunk: " + notPositive("2147483648")},
      {{"--dry-run", "--wait"}, "--dry-run excludes --wait"},
      {{"--failed-of", "12", "-s", "1"}, "-s excludes --failed-of"},
      {{"--failed-of", "12", "-n", "1"}, "-n excludes --failed-of"},
      {{"--failed-of", "12", "--chunk", "2"}, "--chunk excludes --failed-of"},
      {{"--failed-of", "12_1"}, "--failed-of: 12_1 is not an array id"},
      {{"--sbatch-option", "--wait"},
       "--sbatch-option: --wait is not allowed, since runlet-job sets it or depends on it"},
      {{"--keep-env", "A=b"}, "--keep-env: A=b is not a variable name"},
      {{"--sbatch-option=x"},
       "--sbatch-option: x is not an option; write an option and its value as one word, such as "
       "--mem=4G"},
      {{"--sbatch-option"}, "--sbatch-option: 1 required OPTION missing"},
      {{"other.xml"}, "The following argument was not expected: other.xml"},
  };
  for (const WrongCase& row : cases) {
    expectTool(run(row.arguments), "",
               "runlet-job: " + row.error + "\nSee: runlet-job submit --help\n", "exit 2");
  }
  for (const char* program : {"sbatch", "scontrol", "squeue"}) {
    EXPECT_EQ(slurm_.calls(program), Calls{});
  }
}

TEST_F(Submit, ReportsWhenTheIdCannotBeWritten) {
  write(quietJob(1));
  ProcessOptions options = submit({});
  options.prepare = [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); };
  expectTool(runProcess(options), "",
             withWarning("runlet-job: submit: queued: 12\n"
                         "runlet-job: cannot write to standard output: No space left on device\n"),
             "exit 2");
}

}  // namespace
}  // namespace runlet_test
