// Refusals happen before anything is queued.

#include "farm.h"

namespace runlet_test {
namespace {

class SlurmRefusal : public FarmTest {
 protected:
  // Asserts that nothing was queued, and that no job was requested from Slurm.
  void expectNothingQueued(const ProcessResult& result) const {
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(queue(), "");
    EXPECT_EQ(nextJobId(), next_);
  }

  const std::string next_ = nextJobId();
};

TEST_F(SlurmRefusal, OfAJobFileWithAnErrorShowsTheFindings) {
  Job job = reportingJob(3);
  job.arguments += " %tx";
  write(job);
  const ProcessResult check = runProcess(program({tool_, "check", jobFile_}));
  EXPECT_EQ(describeStatus(check.waitStatus), "exit 1");
  const ProcessResult result = submit();
  EXPECT_EQ(result.error, check.output);
  EXPECT_NE(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  expectNothingQueued(result);
}

TEST_F(SlurmRefusal, OfAJobFileThatIsMissingSaysSo) {
  const ProcessResult check = runProcess(program({tool_, "check", jobFile_}));
  const ProcessResult result = submit();
  EXPECT_EQ(result.error, check.output);
  EXPECT_NE(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
  expectNothingQueued(result);
}

TEST_F(SlurmRefusal, BySlurmIsPassedOn) {
  write(reportingJob(3));
  const ProcessResult result = submit({"--partition", "moon"});
  EXPECT_NE(result.error.find("sbatch: error: invalid partition specified: moon\n"
                              "sbatch: error: Batch job submission failed: "
                              "Invalid partition name specified\n"),
            std::string::npos)
      << result.error;
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
  expectNothingQueued(result);
}

TEST_F(SlurmRefusal, OfABackslashInTheLogFolderSaysSo) {
  write(reportingJob(1).set("LogFolder", folder_.file("back\\slash")));
  const ProcessResult result = submit();
  EXPECT_EQ(result.error,
            "runlet-job: submit: sbatch does not support a backslash in the log folder: " +
                folder_.file("back\\slash") + "\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  expectNothingQueued(result);
}

}  // namespace
}  // namespace runlet_test
