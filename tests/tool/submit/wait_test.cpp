// runlet-job submit --wait with a fake Slurm whose answers the test sets.

#include "tool/slurm/wait.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "fake_slurm.h"
#include "pseudo_terminal.h"
#include "tool/slurm/arrays.h"

namespace runlet_test {
namespace {

using Calls = std::vector<std::vector<std::string>>;
using std::chrono::milliseconds;

TEST(Pause, GrowsAndIsLongComparedWithTheQuery) {
  const milliseconds quick(1);
  const int expected[] = {200, 400, 800, 1600, 3200, 5000, 5000};
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(runlet_tool::pauseAfter(i + 1, quick), milliseconds(expected[i]));
  }
  EXPECT_EQ(runlet_tool::pauseAfter(1'000'000, quick), milliseconds(5000));
  EXPECT_EQ(runlet_tool::pauseAfter(1, milliseconds(20)), milliseconds(200));
  EXPECT_EQ(runlet_tool::pauseAfter(1, milliseconds(21)), milliseconds(210));
  EXPECT_EQ(runlet_tool::pauseAfter(9, milliseconds(2000)), milliseconds(20000));
}

class SubmitAndWait : public SubmitTest {
 protected:
  void SetUp() override {
    slurm_.reply("sbatch", "echo 12");
  }

  // The summary line of a task, and the path of its log.
  std::string line(int task, const std::string& end, const std::string& log = "") const {
    const std::string number = std::to_string(task);
    std::string text = "task " + number + ": " + end + ": /bin/true f" + number + "\n";
    return log.empty() ? text : text + "  log: " + folder_.file(log) + "\n";
  }

  // The end lines that `run` writes for tasks of an element, such as "12_0".
  std::string endLine(const std::string& element, const std::string& ends) const {
    return "runlet-job-ends " + runlet_tool::jobHash(jobFile_) + ":" + element + " " + ends + "\n";
  }

  static std::string element(int number, const std::string& state, int status = 0) {
    return "echo '12    " + std::to_string(number) + "  " + state + "   " + std::to_string(status) +
           "  '\n";
  }
};

const std::vector<std::string> squeueArguments = {
    "-h",
    "-r",
    "--states=all",
    "-j",
    "12",
    "-O",
    "ArrayJobID:20,ArrayTaskID:20,State:20,exit_code:20"};
const std::vector<std::string> sacctArguments = {
    "-n", "-X", "-P", "-j", "12", "-o", "JobID,State,ExitCode"};

TEST_F(SubmitAndWait, EndsWhenAllTasksHaveSucceeded) {
  write(quietJob(2));
  slurm_.reply("squeue", 1, element(1, "PENDING") + element(2, "PENDING"));
  slurm_.reply("squeue", 2, element(1, "COMPLETED") + element(2, "RUNNING"));
  slurm_.reply("squeue", element(1, "COMPLETED") + element(2, "COMPLETED"));
  expectSubmit({"--wait"}, "12\n",
               line(1, "succeeded") + line(2, "succeeded") + "2 tasks: 2 succeeded\n", "exit 0");
  EXPECT_EQ(slurm_.calls("squeue"), (Calls{squeueArguments, squeueArguments, squeueArguments}));
  EXPECT_EQ(slurm_.calls("sacct"), Calls{});
}

TEST_F(SubmitAndWait, ReportsHowTasksHaveFailed) {
  write(quietJob(6));
  slurm_.reply("squeue", element(3, "TIMEOUT", 15) + element(1, "COMPLETED") +
                             element(2, "FAILED", 768) + element(4, "FAILED", 9) +
                             element(5, "OUT_OF_MEMORY", 9) + element(6, "CANCELLED"));
  expectSubmit({"--wait"}, "12\n",
               line(2, "failed with exit code 3", "job-2.log") + line(3, "timed out", "job-3.log") +
                   line(4, "killed by signal 9 (Killed)", "job-4.log") +
                   line(5, "out_of_memory", "job-5.log") + line(6, "cancelled", "job-6.log") +
                   line(1, "succeeded") +
                   "6 tasks: 1 succeeded, 1 failed (2), 1 killed (4), 1 timed out (3), "
                   "1 cancelled (6), 1 out_of_memory (5)\n",
               "exit 1");
}

TEST_F(SubmitAndWait, WaitsForALostTaskThatIsRunAgain) {
  write(quietJob(2));
  slurm_.reply("squeue", 1, element(1, "NODE_FAIL", 256) + element(2, "RUNNING"));
  slurm_.reply("squeue", 2, element(1, "PENDING") + element(2, "COMPLETED"));
  slurm_.reply("squeue", element(1, "COMPLETED") + element(2, "COMPLETED"));
  expectSubmit({"--wait"}, "12\n",
               line(1, "succeeded") + line(2, "succeeded") + "2 tasks: 2 succeeded\n", "exit 0");
  EXPECT_EQ(slurm_.calls("squeue").size(), 3U);
}

TEST_F(SubmitAndWait, AsksTheAccountsForWhatTheQueueHasForgotten) {
  write(quietJob(3));
  slurm_.reply("squeue", 1,
               element(1, "COMPLETED") + element(2, "RUNNING") + element(3, "RUNNING"));
  slurm_.reply("squeue", 2, element(3, "RUNNING"));
  slurm_.reply("squeue", "echo 'slurm_load_jobs error: Invalid job id specified' >&2; exit 1");
  slurm_.reply("sacct", 1, "printf '12_1|FAILED|1:0\\n12_2|FAILED|0:6\\n12_3|COMPLETED|0:0\\n'");
  slurm_.reply("sacct", 2, "echo '12_3|FAILED|2:0'");
  expectSubmit({"--wait"}, "12\n",
               line(2, "killed by signal 6 (Aborted)", "job-2.log") +
                   line(3, "failed with exit code 2", "job-3.log") + line(1, "succeeded") +
                   "3 tasks: 1 succeeded, 1 failed (3), 1 killed (2)\n",
               "exit 1");
  EXPECT_EQ(slurm_.calls("sacct"), (Calls{sacctArguments, sacctArguments}));
}

TEST_F(SubmitAndWait, GivesUpOnTasksThatAreNoLongerKnown) {
  write(quietJob(2));
  slurm_.reply("squeue", element(2, "COMPLETED"));
  slurm_.reply("squeue", 2, element(1, "RUNNING"));
  slurm_.reply("sacct", "echo 'Slurm accounting storage is disabled' >&2; exit 1");
  expectSubmit({"--wait"}, "12\n",
               line(1, "unknown", "job-1.log") + line(2, "succeeded") +
                   "2 tasks: 1 succeeded, 1 unknown (1)\n",
               "exit 1");
  EXPECT_EQ(slurm_.calls("squeue").size(), 5U);
}

TEST_F(SubmitAndWait, NeedsNoAccounts) {
  write(quietJob(1));
  slurm_.remove("sacct");
  expectSubmit({"--wait"}, "12\n", line(1, "unknown", "job-1.log") + "1 task: 1 unknown (1)\n",
               "exit 1");
}

TEST_F(SubmitAndWait, ContinuesIfSlurmDoesNotAnswer) {
  write(quietJob(1));
  slurm_.reply("squeue", 1, "echo 'slurm_load_jobs error: Unable to contact' >&2; exit 1");
  slurm_.reply("squeue", 2, "kill -9 $$");
  slurm_.reply("squeue", element(1, "COMPLETED"));
  expectSubmit(
      {"--wait"}, "12\n",
      "runlet-job: submit: no answer from Slurm, still waiting: slurm_load_jobs error: Unable to "
      "contact\n" +
          line(1, "succeeded") + "1 task: 1 succeeded\n",
      "exit 0");
}

// The time of a query without an answer does not increase the pause.
TEST_F(SubmitAndWait, AsksAgainSoonAfterALongQueryWithoutAnAnswer) {
  write(quietJob(1));
  slurm_.reply("squeue", 1,
               "/bin/sleep 1; echo 'slurm_load_jobs error: Unable to contact' >&2; exit 1");
  slurm_.reply("squeue", element(1, "COMPLETED"));
  const auto begin = std::chrono::steady_clock::now();
  expectSubmit(
      {"--wait"}, "12\n",
      "runlet-job: submit: no answer from Slurm, still waiting: slurm_load_jobs error: Unable to "
      "contact\n" +
          line(1, "succeeded") + "1 task: 1 succeeded\n",
      "exit 0");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
}

TEST_F(SubmitAndWait, ContinuesIfTheAccountsDoNotAnswer) {
  write(quietJob(1));
  slurm_.reply("sacct", "exit 1");
  slurm_.reply("sacct", 4, "echo '12_1|COMPLETED|0:0'");
  expectSubmit(
      {"--wait"}, "12\n",
      "runlet-job: submit: no answer from Slurm, still waiting: sacct failed with exit code 1\n" +
          line(1, "succeeded") + "1 task: 1 succeeded\n",
      "exit 0");
}

TEST_F(SubmitAndWait, AsksForAllArraysOfTheirClusterAtOnce) {
  write(quietJob(12));
  slurm_.reply("scontrol", "echo 'MaxArraySize = 11'");
  slurm_.reply("sbatch", "echo '12;lab'");
  slurm_.reply("sbatch", 2, "echo '14;lab'");
  std::string states;
  for (int i = 8; i <= 9; ++i) states += element(i, "COMPLETED");
  slurm_.reply("squeue",
               states + "echo 14 0 FAILED 256; echo 14 1 COMPLETED 0; echo 15 2 FAILED 256");
  slurm_.reply("sacct", "echo '14_2|COMPLETED|0:0'");
  expectSubmit({"--wait", "-s", "8", "-n", "5"}, "12\n14\n",
               line(10, "failed with exit code 1", "job-10.log") + line(8, "succeeded") +
                   line(9, "succeeded") + line(11, "succeeded") + line(12, "succeeded") +
                   "5 tasks: 4 succeeded, 1 failed (10)\n",
               "exit 1");
  std::vector<std::string> squeueCall = squeueArguments;
  squeueCall[4] = "12,14";
  squeueCall.emplace_back("--clusters=lab");
  std::vector<std::string> sacctCall = sacctArguments;
  sacctCall[4] = "12,14";
  sacctCall.emplace_back("--clusters=lab");
  EXPECT_EQ(slurm_.calls("squeue"), Calls{squeueCall});
  EXPECT_EQ(slurm_.calls("sacct"), Calls{sacctCall});
}

TEST_F(SubmitAndWait, WithholdsVariablesThatChangeTheAnswer) {
  write(quietJob(1));
  slurm_.reply("squeue", "[ -z \"$SQUEUE_USERS$SQUEUE_SORT\" ] || exit 1");
  slurm_.reply("sacct",
               "[ -z \"$SACCT_FORMAT\" ] && [ \"$SLURM_BITSTR_LEN$SLURM_CONF\" = 0x ] && "
               "echo '12_1|COMPLETED|0:0'");
  ProcessOptions options = submit({"--wait"});
  options.environment.insert(options.environment.end(), {{"SQUEUE_USERS", "nobody"},
                                                         {"SQUEUE_SORT", "x"},
                                                         {"SACCT_FORMAT", "User"},
                                                         {"SLURM_CONF", "x"},
                                                         {"SLURM_BITSTR_LEN", "64"}});
  expectTool(runProcess(options), "12\n",
             withWarning(line(1, "succeeded") + "1 task: 1 succeeded\n"), "exit 0");
}

TEST_F(SubmitAndWait, DistinguishesTheTasksOfAChunk) {
  write(quietJob(9).set("LogFolder", "logs"));
  folder_.makeFolder("logs");
  for (const char* number : {"0", "1", "2", "3", "4"}) {
    const std::string id = std::string("12_") + number;
    folder_.write(std::string("logs/job-chunk-") + number + ".log",
                  "task 2: failed with exit code 1: x\n" + endLine(id, "failed 7 1") +
                      endLine(id, "succeeded 0 2-4") + endLine(id, "timed-out 0 7"));
  }
  slurm_.reply("squeue", element(0, "FAILED", 256) + element(1, "FAILED", 256) +
                             element(2, "COMPLETED") + element(3, "CANCELLED") +
                             element(4, "NODE_FAIL"));
  expectSubmit({"--wait", "--chunk", "2"}, "12\n",
               line(1, "failed with exit code 7", "logs/job-1.log") +
                   line(3, "failed with exit code 1", "logs/job-3.log") +
                   line(4, "failed with exit code 1", "logs/job-4.log") +
                   line(7, "cancelled", "logs/job-7.log") + line(8, "cancelled", "logs/job-8.log") +
                   line(9, "node_fail", "logs/job-9.log") + line(2, "succeeded") +
                   line(5, "succeeded") + line(6, "succeeded") +
                   "9 tasks: 3 succeeded, 3 failed (1, 3-4), 2 cancelled (7-8), "
                   "1 node_fail (9)\n",
               "exit 1");
}

// If the element was ended, the log names the tasks that were done.
TEST_F(SubmitAndWait, TakesTheElementsEndForTasksThatItsLogDoesNotName) {
  write(quietJob(7));
  folder_.write("job-chunk-0.log", endLine("12_0", "succeeded 0 1"));
  folder_.write("job-chunk-1.log", endLine("12_1", "succeeded 0 4"));
  folder_.makeFolder("job-chunk-2.log");
  slurm_.reply("squeue", element(0, "TIMEOUT") + element(1, "FAILED", 9) + element(2, "TIMEOUT"));
  expectSubmit({"--wait", "--chunk", "3"}, "12\n",
               line(2, "timed out", "job-2.log") + line(3, "timed out", "job-3.log") +
                   line(5, "killed by signal 9 (Killed)", "job-5.log") +
                   line(6, "killed by signal 9 (Killed)", "job-6.log") +
                   line(7, "timed out", "job-7.log") + line(1, "succeeded") + line(4, "succeeded") +
                   "7 tasks: 2 succeeded, 2 killed (5-6), 3 timed out (2-3, 7)\n",
               "exit 1");
}

// A log may be from another array with a reused number, another element, or another job file; and
// text for people is not evaluated.
TEST_F(SubmitAndWait, TakesNoVerdictFromALogOfAnotherElement) {
  write(quietJob(8));
  const std::string lines = "succeeded 0 1,3,5,7";
  folder_.write("job-chunk-0.log", endLine("11_0", lines));
  folder_.write("job-chunk-1.log", endLine("12_0", lines));
  folder_.write("job-chunk-2.log", "runlet-job-ends 0123456789abcdef:12_2 " + lines + "\n");
  folder_.write("job-chunk-3.log",
                "task 7: succeeded: x\ntask 8: \033[31mfailed\033[m: x\n2 tasks: 2 succeeded\n");
  std::string states;
  for (int i = 0; i < 4; ++i) states += element(i, "FAILED", 256);
  slurm_.reply("squeue", states);
  std::string summary;
  for (int i = 1; i <= 8; ++i) {
    summary += line(i, "failed with exit code 1", "job-" + std::to_string(i) + ".log");
  }
  expectSubmit({"--wait", "--chunk", "2"}, "12\n", summary + "8 tasks: 8 failed (1-8)\n", "exit 1");
}

TEST_F(SubmitAndWait, TakesNothingFromALogButItsVerdicts) {
  write(quietJob(4));
  folder_.write("job-chunk-0.log", endLine("12_0", "other 0 1") + endLine("12_0", "\033[31m 0 2") +
                                       endLine("12_0", "succeeded 0 2,3"));
  // A log in which every task succeeded does not change that the element failed.
  folder_.write("job-chunk-1.log", endLine("12_1", "succeeded 0 3-4"));
  slurm_.reply("squeue", element(0, "FAILED", 256) + element(1, "FAILED", 512));
  expectSubmit({"--wait", "--chunk", "2"}, "12\n",
               line(1, "unknown", "job-1.log") + line(3, "failed with exit code 2", "job-3.log") +
                   line(4, "failed with exit code 2", "job-4.log") + line(2, "succeeded") +
                   "4 tasks: 1 succeeded, 2 failed (3-4), 1 unknown (1)\n",
               "exit 1");
}

// A task may have put a pipe, a link to an inaccessible file, or an endless file there.
TEST_F(SubmitAndWait, ReadsNoLogThatIsNotARegularFile) {
  write(quietJob(9));
  folder_.write("elsewhere", endLine("12_1", "succeeded 0 3"));
  ASSERT_EQ(mkfifo(folder_.file("job-chunk-0.log").c_str(), 0666), 0);
  ASSERT_EQ(symlink("elsewhere", folder_.file("job-chunk-1.log").c_str()), 0);
  ASSERT_EQ(symlink("/dev/zero", folder_.file("job-chunk-2.log").c_str()), 0);
  folder_.makeFolder("job-chunk-3.log");
  std::string states;
  for (int i = 0; i < 5; ++i) states += element(i, "FAILED", 256);
  slurm_.reply("squeue", states);
  std::string summary;
  for (int i = 1; i <= 9; ++i) {
    summary += line(i, "failed with exit code 1", "job-" + std::to_string(i) + ".log");
  }
  expectSubmit({"--wait", "--chunk", "2"}, "12\n", summary + "9 tasks: 9 failed (1-9)\n", "exit 1");
}

// Only the end of a huge log is read, from its first complete line on.
TEST_F(SubmitAndWait, ReadsOnlyTheEndOfALog) {
  write(quietJob(4));
  constexpr std::size_t most = 64 * 1024;
  const std::string second = endLine("12_0", "succeeded 0 2");
  const std::string filler(most - second.size(), '.');
  folder_.write("job-chunk-0.log", endLine("12_0", "succeeded 0 1") + filler + second);
  std::filesystem::resize_file(folder_.write("job-chunk-1.log", ""), std::uintmax_t{1} << 36);
  std::ofstream(folder_.file("job-chunk-1.log"), std::ios::app)
      << "\n" + endLine("12_1", "succeeded 0 3");
  slurm_.reply("squeue", element(0, "FAILED", 256) + element(1, "FAILED", 256));
  ProcessOptions options = submit({"--wait", "--chunk", "2"});
  expectTool(runProcess(options), "12\n",
             withWarning(line(1, "failed with exit code 1", "job-1.log") +
                         line(2, "failed with exit code 1", "job-2.log") +
                         line(4, "failed with exit code 1", "job-4.log") + line(3, "succeeded") +
                         "4 tasks: 1 succeeded, 3 failed (1-2, 4)\n"),
             "exit 1");
}

TEST_F(SubmitAndWait, LeavesTheTasksAloneWhenItIsInterrupted) {
  write(quietJob(12));
  slurm_.reply("scontrol", "echo 'MaxArraySize = 11'");
  for (const int second : {2, 4, 6}) slurm_.reply("sbatch", second, "echo 14");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    slurm_.reply("squeue", "kill -" + std::to_string(signal) + " $PPID");
    const ProcessResult result = run({"--wait"});
    EXPECT_EQ(
        result.error,
        withWarning("runlet-job: submit: the tasks keep running; to stop them: scancel 12 14\n"));
    EXPECT_EQ(describeStatus(result.waitStatus), "signal " + std::to_string(signal));
  }
  EXPECT_EQ(slurm_.calls("scancel"), Calls{});
}

TEST_F(SubmitAndWait, IsNotInterruptedByASignalThatItWasStartedToIgnore) {
  write(quietJob(1));
  slurm_.reply("squeue", "kill -HUP $PPID\n" + element(1, "COMPLETED"));
  ProcessOptions options = submit({"--wait"});
  options.prepare = [] { std::signal(SIGHUP, SIG_IGN); };
  expectTool(runProcess(options), "12\n",
             withWarning(line(1, "succeeded") + "1 task: 1 succeeded\n"), "exit 0");
}

TEST_F(SubmitAndWait, HasTheIdWrittenBeforeItWaits) {
  write(quietJob(1));
  slurm_.reply("squeue", "until [ -e '" + folder_.file("done") + "' ]; do /bin/sleep 0.01; done\n" +
                             element(1, "COMPLETED"));
  Process process(submit({"--wait"}));
  EXPECT_TRUE(process.readUntil("12\n"));
  folder_.write("done", "");
  EXPECT_EQ(describeStatus(process.finish().waitStatus), "exit 0");
}

TEST_F(SubmitAndWait, ShowsABarOnATerminalAndErasesIt) {
  write(quietJob(2));
  slurm_.reply("squeue", 1, "exit 1");
  slurm_.reply("squeue", element(1, "COMPLETED") + element(2, "RUNNING"));
  slurm_.reply("squeue", 5, element(1, "COMPLETED") + element(2, "COMPLETED"));
  const Terminal terminal;
  ProcessOptions options = submit({"--wait"});
  options.prepare = [&] { openAs(STDERR_FILENO, terminal.name(), O_WRONLY | O_NOCTTY); };
  EXPECT_EQ(describeStatus(runProcess(options).waitStatus), "exit 0");
  const std::string text = terminal.written();
  EXPECT_NE(text.find("\r\033[Krunlet-job: submit: no answer"), std::string::npos) << text;
  EXPECT_NE(text.find("\rwaiting [####################                    ] 50%"),
            std::string::npos);
  EXPECT_NE(text.find("%\033[K\r\033[Ktask 1: succeeded"), std::string::npos);
}

}  // namespace
}  // namespace runlet_test
