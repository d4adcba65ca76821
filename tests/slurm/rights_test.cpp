// The user and environment of tasks.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>

#include "farm.h"

namespace runlet_test {
namespace {

constexpr unsigned nobody = 65534;

class SlurmRights : public FarmTest {
 protected:
  // A job of one task, run as nobody, that reports its environment.
  Job probingJob() const {
    return jobOf({probe_ + " " + folder_.file("report")}).set("umask", "23");
  }

  // What the task reported under that name, with lines joined by "; ".
  std::string found(const std::string& name) const {
    std::string lines;
    for (const std::string& line : linesOf(log("report"))) {
      const std::size_t end = line.find_first_of(" \t");
      if (line.substr(0, end) != name) continue;
      lines += (lines.empty() ? "" : "; ") + line.substr(end + 1);
    }
    return lines;
  }

  std::string oneWarning() const {
    return "runlet-job: submit: 1 warning; see: runlet-job check " + jobFile_ + "\n";
  }

  std::string ownerOf(const std::string& name) const {
    struct stat status {};
    if (stat(folder_.file(name).c_str(), &status) != 0) return "none";
    return std::to_string(status.st_uid) + ":" + std::to_string(status.st_gid);
  }
};

TEST_F(SlurmRights, AreThoseOfTheJobForRoot) {
  write(probingJob().set("LogFolder", "logs"));
  awaitEnd(submittedOne());
  EXPECT_EQ(found("Uid:"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(found("Gid:"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(found("Umask:"), "0027");
  EXPECT_EQ(ownerOf("report"), "65534:65534");
  EXPECT_EQ(ownerOf("logs"), "65534:65534");
  EXPECT_EQ(ownerOf("logs/job-1.log"), "65534:65534");
}

TEST_F(SlurmRights, AreTheCallersForAnybodyElse) {
  write(probingJob().set("uid", "0").set("gid", "0"));
  ProcessOptions options = submission();
  options.prepare = [] {
    if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0) _exit(97);
  };
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(result.error,
            oneWarning() +
                "runlet-job: submit: the tasks run as user 65534 and group 65534 instead of "
                "the job's user 0 and group 0: only root can switch\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  awaitEnd(firstLine(result.output));
  EXPECT_EQ(found("Uid:"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(found("Gid:"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(found("Umask:"), "0027");
  EXPECT_EQ(ownerOf("job-1.log"), "65534:65534");
}

TEST_F(SlurmRights, AreRootsForAJobOfRoot) {
  write(probingJob().set("uid", "0").set("gid", "0"));
  awaitEnd(submittedOne({}, oneWarning()));
  EXPECT_EQ(found("Uid:"), "0\t0\t0\t0");
  EXPECT_EQ(found("Gid:"), "0\t0\t0\t0");
}

class SlurmSurroundings : public SlurmRights {};

TEST_F(SlurmSurroundings, HoldTheRunFolderAndNoInput) {
  folder_.makeFolder("run", 0777);
  write(probingJob().set("WorkingFolder", folder_.file("run")));
  awaitEnd(submittedOne());
  EXPECT_EQ(found("folder"), folder_.file("run"));
  EXPECT_TRUE(found("descriptor").starts_with("0 /dev/null; ")) << found("descriptor");
}

TEST_F(SlurmSurroundings, BeginWhereTheVerbWasStartedForARelativeRunFolder) {
  folder_.makeFolder("run", 0777);
  // The adapter could not do that for a job of several tasks, and it would be an error.
  write(probingJob().set("WorkingFolder", "run").set("LogFolder", folder()));
  awaitEnd(submittedOne({}, oneWarning()));
  EXPECT_EQ(found("folder"), folder_.file("run"));
}

TEST_F(SlurmSurroundings, HaveStandardErrorInTheLogJoinedOrNot) {
  for (const char* joined : {"Yes", "No"}) {
    Job job = jobOf({farmTask_ + " out:first err:second out:third"});
    write(job.set("redirectStderr", joined));
    awaitEnd(submittedOne());
    EXPECT_EQ(log("job-1.log"), calling(job.tasks[0], folder()) + "first\nsecond\nthird\n")
        << joined;
  }
}

}  // namespace
}  // namespace runlet_test
