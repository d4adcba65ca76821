// runlet-job submit --failed-of with a fake Slurm whose answers the test sets.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "fake_slurm.h"
#include "tool/slurm/arrays.h"

namespace runlet_test {
namespace {

using Calls = std::vector<std::vector<std::string>>;

class FailedOf : public SubmitTest {
 protected:
  void SetUp() override {
    slurm_.reply("sbatch", "echo 20");
  }

  // Makes squeue report arrays with these `comments` and elements.
  void reportArrays(const std::vector<std::pair<std::string, std::string>>& comments,
                    const std::string& states) const {
    std::string script = "case \"$5 $7\" in\n";
    for (const auto& [id, text] : comments) {
      script += "'" + id + " Comment:200') echo '" + text + "    ';;\n";
    }
    slurm_.reply("squeue", script + "*ArrayJobID*) printf '" + states + "';;\n" +
                               "*) echo 'slurm_load_jobs error: Invalid job id specified' >&2\n"
                               "exit 1;;\nesac\n");
  }

  // Asserts what is submitted for the failed tasks of these arrays.
  void expectArray(const std::vector<std::string>& ids, const std::string& elements, int count,
                   int taskCount, const std::string& error) const {
    std::vector<std::string> arguments;
    for (const std::string& id : ids) arguments.insert(arguments.end(), {"--failed-of", id});
    expectSubmit(arguments, "20\n", error, "exit 0");
    std::vector<std::string> expected = plainArguments(elements, count, taskCount);
    // the last task to run
    const std::string last = elements.substr(elements.find_last_of(",-") + 1);
    expected[1] = "--comment=" + comment("0:1:" + last + ":" + std::to_string(count));
    EXPECT_EQ(slurm_.calls("sbatch"), Calls{expected});
  }

  void expectRefused(const std::vector<std::string>& arguments, const std::string& error) const {
    expectSubmit(arguments, "", "runlet-job: submit: " + error + "\n", "exit 2");
    EXPECT_EQ(slurm_.calls("sbatch"), Calls{});
  }
};

TEST_F(FailedOf, SubmitsTheTasksThatHaveNotSucceeded) {
  write(quietJob(9));
  reportArrays({{"12", comment("0:1:9:9")}},
               "12 1 COMPLETED 0\\n12 2 FAILED 256\\n12 3 TIMEOUT 15\\n12 4 COMPLETED 0\\n"
               "12 5 CANCELLED 0\\n12 6 NODE_FAIL 0\\n12 7 OUT_OF_MEMORY 9\\n12 8 FAILED 9\\n"
               "12 9 COMPLETED 0\\n");
  expectArray({"12"}, "2-3,5-8", 6, 9, "");
  EXPECT_EQ(slurm_.calls("squeue"),
            (Calls{{"-h", "-r", "--states=all", "-j", "12", "-O", "Comment:200"},
                   {"-h", "-r", "--states=all", "-j", "12", "-O",
                    "ArrayJobID:20,ArrayTaskID:20,State:20,exit_code:20"}}));
  EXPECT_EQ(slurm_.calls("sacct"), Calls{});
}

TEST_F(FailedOf, SkipsTasksThatHaveNotEnded) {
  write(quietJob(4));
  reportArrays({{"12", comment("0:1:4:4")}},
               "12 1 RUNNING 0\\n12 2 FAILED 256\\n12 3 PENDING 0\\n12 4 COMPLETING 0\\n");
  expectArray({"12"}, "2", 1, 4, "runlet-job: submit: skipped, not finished yet: tasks 1, 3-4\n");
}

TEST_F(FailedOf, SubmitsNothingIfNoTaskHasFailed) {
  write(quietJob(2));
  reportArrays({{"12", comment("0:1:2:2")}}, "12 1 COMPLETED 0\\n12 2 COMPLETED 0\\n");
  expectSubmit({"--failed-of", "12"}, "", "runlet-job: submit: no task has failed\n", "exit 0");
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{});
  EXPECT_EQ(slurm_.calls("scontrol"), Calls{});
}

TEST_F(FailedOf, TakesSeveralArraysAndTheLatestResultOfATask) {
  write(quietJob(12));
  reportArrays(
      {{"9", comment("0:1:12:9")}, {"10", comment("10:1:12:3")}, {"12", comment("0:1:12:3")}},
      "9 1 FAILED 256\\n9 2 FAILED 256\\n9 3 COMPLETED 0\\n9 4 FAILED 256\\n9 5 COMPLETED 0\\n"
      "9 6 COMPLETED 0\\n9 7 COMPLETED 0\\n9 8 COMPLETED 0\\n9 9 COMPLETED 0\\n"
      "10 0 FAILED 256\\n10 1 COMPLETED 0\\n10 2 COMPLETED 0\\n"
      "12 1 COMPLETED 0\\n12 2 RUNNING 0\\n12 4 FAILED 512\\n");
  expectArray({"12", "9", "10", "9"}, "4,10", 2, 12,
              "runlet-job: submit: skipped, not finished yet: tasks 2\n");
  EXPECT_EQ(slurm_.calls("squeue").size(), 4U);
  EXPECT_EQ(slurm_.calls("squeue").back()[4], "9,10,12");
}

TEST_F(FailedOf, AsksTheAccountsIfTheQueueHasForgotten) {
  write(quietJob(3));
  reportArrays({}, "");
  slurm_.reply("sacct", 1,
               "echo 'sbatch --parsable --comment=" + comment("0:1:3:3") +
                   " --job-name=x --comment=no'; echo more");
  slurm_.reply("sacct", 2,
               "printf '12_1|COMPLETED|0:0\\n12_2|FAILED|2:0\\n12_[3]|CANCELLED by 0|0:0'");
  expectArray({"12"}, "2-3", 2, 3, "");
  EXPECT_EQ(slurm_.calls("sacct"),
            (Calls{{"-n", "-X", "-P", "-j", "12", "-o", "SubmitLine"},
                   {"-n", "-X", "-P", "-j", "12", "-o", "JobID,State,ExitCode"}}));
}

TEST_F(FailedOf, PrefersTheQueueToTheAccounts) {
  write(quietJob(3));
  reportArrays({{"12", comment("0:1:3:3")}}, "12 1 PENDING 0\\n12 2 COMPLETED 0\\n");
  slurm_.reply("sacct", "printf '12_1|NODE_FAIL|1:0\\n12_2|FAILED|2:0\\n12_3|FAILED|1:0'");
  expectArray({"12"}, "3", 1, 3, "runlet-job: submit: skipped, not finished yet: tasks 1\n");
}

TEST_F(FailedOf, IsRefusedIfSlurmHasForgottenTasks) {
  write(quietJob(3));
  reportArrays({{"12", comment("0:1:3:3")}},
               "12 1 FAILED 256\\n12 2 COMPLETED 0\\n120 3 FAILED 1\\n");
  expectRefused({"--failed-of", "12"}, "Slurm knows only 2 of the 3 elements of array 12");
  expectRefused({"--failed-of", "13"}, "Slurm no longer knows array 13");
  expectRefused({"--failed-of", "12", "--failed-of", "13"}, "Slurm no longer knows array 13");
}

TEST_F(FailedOf, IsRefusedForAnArrayOfAnotherKind) {
  write(quietJob(3));
  reportArrays({{"12", "(null)"},
                {"13", "runlet-job:0:1:3:3:0123456789abcdef"},
                {"14", "x " + comment("0:1:3:3")}},
               "");
  expectRefused({"--failed-of", "12"}, "array 12 was not submitted by runlet-job");
  expectRefused({"--failed-of", "13"},
                "array 13 was submitted for another job file than " + jobFile_);
  expectRefused({"--failed-of", "14"}, "array 14 was not submitted by runlet-job");
  slurm_.reply("sacct", "echo 'sbatch x --parsable --comment=" + comment("0:1:3:3") + "'");
  expectRefused({"--failed-of", "15"}, "array 15 was not submitted by runlet-job");
}

TEST_F(FailedOf, IsRefusedIfSlurmDoesNotAnswer) {
  write(quietJob(3));
  slurm_.reply("squeue", "echo 'squeue: error: no contact' >&2; exit 1");
  expectRefused({"--failed-of", "12"}, "squeue: error: no contact");
  reportArrays({{"12", comment("0:1:3:3")}}, "12 1 FAILED 256\\n");
  slurm_.reply("sacct", "exit 1");
  expectRefused({"--failed-of", "12"}, "sacct failed with exit code 1");
  expectRefused({"--failed-of", "13"}, "sacct failed with exit code 1");
  slurm_.remove("squeue");
  expectRefused({"--failed-of", "12"}, "cannot run squeue: No such file or directory");
}

TEST_F(FailedOf, OfAnArrayOfChunksIsAboutTheirTasks) {
  write(quietJob(12));
  reportArrays({{"12", comment("3:4:12:3")}},
               "12 0 FAILED 256\\n12 1 COMPLETED 0\\n12 2 FAILED 256\\n");
  const std::string label = "runlet-job-ends " + runlet_tool::jobHash(jobFile_) + ":12_0 ";
  folder_.write("job-chunk-0.log", "task 6: failed with exit code 1: x\n" + label +
                                       "succeeded 0 3,6\n" + label + "failed 1 4,7\n" + label +
                                       "not-started 0 5\n");
  expectArray({"12"}, "4-5,11-12", 4, 12, "");
}

// A task may have written to the log of a chunk, or replaced it: all tasks of a failed element are
// run again, unless its own log distinguishes them.
TEST_F(FailedOf, TakesNoVerdictFromALogOfAnotherElement) {
  write(quietJob(22));
  std::string states;
  for (int i = 0; i < 11; ++i) {
    states.append("12 ").append(std::to_string(i)).append(" FAILED 256\\n");
  }
  reportArrays({{"12", comment("1:2:22:11")}}, states);
  const std::string hash = runlet_tool::jobHash(jobFile_);
  const auto line = [](const std::string& id, const std::string& ends) {
    return "runlet-job-ends " + id + " " + ends + "\n";
  };
  const std::string all = "succeeded 0 1,3,5,7,9,11,13,15";
  // of another array, element and job file, and text for people
  folder_.write("job-chunk-00.log", line(hash + ":11_0", all));
  folder_.write("job-chunk-01.log", line(hash + ":12_0", all));
  folder_.write("job-chunk-02.log", line("0123456789abcdef:12_2", all));
  folder_.write("job-chunk-03.log", "task 7: succeeded: x\n2 tasks: 2 succeeded\n");
  // no files
  folder_.write("elsewhere", line(hash + ":12_5", all));
  ASSERT_EQ(mkfifo(folder_.file("job-chunk-04.log").c_str(), 0666), 0);
  ASSERT_EQ(symlink("elsewhere", folder_.file("job-chunk-05.log").c_str()), 0);
  ASSERT_EQ(symlink("/dev/zero", folder_.file("job-chunk-06.log").c_str()), 0);
  folder_.makeFolder("job-chunk-07.log");
  // its own, with an invalid end, and one of another element's task
  folder_.write("job-chunk-08.log",
                line(hash + ":12_8", "\033[31m 0 18") + line(hash + ":12_8", "succeeded 0 17,19"));
  // its own, which does not say what failed
  folder_.write("job-chunk-09.log", line(hash + ":12_9", "succeeded 0 19-20"));
  // its own, larger than memory
  std::filesystem::resize_file(folder_.write("job-chunk-10.log", line(hash + ":12_10", all)),
                               std::uintmax_t{1} << 36);
  std::ofstream(folder_.file("job-chunk-10.log"), std::ios::app)
      << "\n" + line(hash + ":12_10", "succeeded 0 21");
  expectArray({"12"}, "1-16,18-20,22", 20, 22, "");
}

// Tasks that are no longer in the job, and comments of arrays that were never submitted here.
TEST_F(FailedOf, SkipsTasksThatAreNotInTheJob) {
  write(quietJob(2));
  reportArrays(
      {{"12", comment("1:2147483647:2147483647:2")}, {"13", comment("0:1:9:2")}},
      "12 0 COMPLETED 0\\n12 2147483647 FAILED 256\\n13 2 FAILED 256\\n13 3 FAILED 256\\n");
  expectArray({"12", "13"}, "2", 1, 2, "");
}

TEST_F(FailedOf, SubmitsNothingInADryRun) {
  write(quietJob(3));
  reportArrays({{"12", comment("0:1:3:3")}},
               "12 1 COMPLETED 0\\n12 2 COMPLETED 0\\n12 3 FAILED 256\\n");
  const ProcessResult result = run({"--failed-of", "12", "--dry-run"});
  EXPECT_NE(result.output.find(" '--array=3' "), std::string::npos) << result.output;
  EXPECT_EQ(slurm_.calls("sbatch"), Calls{});
}

}  // namespace
}  // namespace runlet_test
