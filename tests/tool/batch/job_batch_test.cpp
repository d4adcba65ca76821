// Preparing the tasks of a job to run without a farm server.

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>

#include "adapter_test.h"
#include "job.h"
#include "temp_folder.h"
#include "tool/batch/batch.h"
#include "tool/system/exit_status.h"
#include "tool/system/files.h"

namespace runlet_tool {
namespace {

using runlet_test::Job;
using runlet_test::otherId;
using runlet_test::TempFolder;

Job jobOf(std::size_t taskCount) {
  Job job;
  job.arguments = "/bin/echo %tn";
  job.tasks.assign(taskCount, "task");
  job.set("TaskTimeout", "5");
  if (geteuid() == 0) job.set("uid", "7");  // running as root causes a warning
  return job;
}

struct Prepared {
  Batch batch;
  int status;
  std::string error;
};

void prepare(const BatchOptions& options, Prepared* prepared) {
  testing::internal::CaptureStderr();
  prepared->status = prepareBatch(options, "run", &prepared->batch);
  prepared->error = testing::internal::GetCapturedStderr();
}

TEST(JobBatch, HasTheTasksOfTheRange) {
  const TempFolder folder;
  const std::string path = folder.write("job.xml", jobOf(5).text());
  using Tasks = std::vector<std::int32_t>;
  struct Row {
    RangeOptions range;
    Tasks tasks;
  };
  const Row rows[] = {
      {{}, {1, 2, 3, 4, 5}}, {{2, {}}, {2}},    {{{}, 2}, {1, 2}}, {{4, 9}, {4, 5}},
      {{0, 3}, {1, 2}},      {{-1, 4}, {1, 2}}, {{5, 1}, {5}},
  };
  for (const Row& row : rows) {
    Prepared prepared;
    prepare({path, row.range, ""}, &prepared);
    EXPECT_EQ(prepared.status, exitFine);
    EXPECT_EQ(prepared.error, "");
    EXPECT_EQ(prepared.batch.tasks, row.tasks);
  }
}

// The end of a range may wrap around.
TEST(JobBatch, NeedsATask) {
  const TempFolder folder;
  const std::string path = folder.write("job.xml", jobOf(5).text());
  for (const RangeOptions& range :
       {RangeOptions{6, {}}, RangeOptions{0, 1}, RangeOptions{1, 0}, RangeOptions{3, -1},
        RangeOptions{2, INT32_MAX}, RangeOptions{INT32_MIN, INT32_MIN}}) {
    Prepared prepared;
    prepare({path, range, ""}, &prepared);
    EXPECT_EQ(prepared.status, exitFailing);
    EXPECT_EQ(prepared.error, "runlet-job: run: no task in that range: " + path + " has 5 tasks\n");
  }
}

TEST(JobBatch, IsNamedAfterItsFile) {
  struct Row {
    std::string file;
    std::string name;
  };
  const Row rows[] = {
      {"harbour.xml", "harbour"},
      {"a.b.xml", "a.b"},
      {"noending", "noending"},
      {".xml", "job"},
      {"x.xml.xml", "x.xml"},
      {"a b'\"$(id)%a.xml", "a b'\"$(id)%a"},
      {"-x.xml", "-x"},
      {"line\nbreak\\.xml", "line_break_"},
      {"\x7f\x01\xff.xml", "__\xff"},
  };
  const TempFolder folder;
  for (const Row& row : rows) {
    Prepared prepared;
    prepare({folder.write(row.file, jobOf(1).text()), {}, ""}, &prepared);
    EXPECT_EQ(prepared.status, exitFine);
    EXPECT_EQ(prepared.batch.name, row.name);
  }
}

TEST(JobBatch, HasTheFullPathsOfItsFolders) {
  struct Row {
    const char* workingFolder;  // null: none
    const char* logFolder;
    std::string folder;
    std::string logs;
  };
  const std::string here = currentFolder();
  const TempFolder folder;
  const Row rows[] = {
      {nullptr, nullptr, folder.path(), folder.path()},
      {nullptr, "logs", folder.path(), folder.path() + "/logs"},
      {nullptr, "/all/logs", folder.path(), "/all/logs"},
      {"/shots", nullptr, "/shots", "/shots"},
      {"/shots", "a/b", "/shots", "/shots/a/b"},
      {"sub", "a", here + "/sub", here + "/sub/a"},
  };
  for (const Row& row : rows) {
    Job job = jobOf(1);
    if (row.workingFolder != nullptr) job.set("WorkingFolder", row.workingFolder);
    if (row.logFolder != nullptr) job.set("LogFolder", row.logFolder);
    Prepared prepared;
    prepare({folder.write("job.xml", job.text()), {}, ""}, &prepared);
    EXPECT_EQ(prepared.status, exitFine) << prepared.error;
    EXPECT_EQ(prepared.batch.folder, row.folder);
    EXPECT_EQ(prepared.batch.logFolder, row.logs);
  }
}

TEST(JobBatch, IsOfAFileInTheCurrentFolder) {
  const TempFolder folder;
  folder.write("job.xml", jobOf(1).text());
  const std::string here = currentFolder();
  ASSERT_EQ(chdir(folder.path().c_str()), 0);
  Prepared prepared;
  prepare({"job.xml", {}, ""}, &prepared);
  EXPECT_EQ(prepared.status, exitFine);
  EXPECT_EQ(prepared.batch.context.jobFile, folder.file("job.xml"));
  EXPECT_EQ(prepared.batch.folder, folder.path());
  ASSERT_EQ(chdir(here.c_str()), 0);
}

TEST(JobBatch, IsRefusedForWhatCheckFinds) {
  const TempFolder folder;
  Job job = jobOf(2);
  job.arguments = "/bin/echo %tx";
  const std::string path = folder.write("job.xml", job.text());
  Prepared prepared;
  prepare({path, {}, ""}, &prepared);
  EXPECT_EQ(prepared.status, exitFailing);
  EXPECT_EQ(
      prepared.error,
      path +
          ":3:32: error RJ060: %tx: %t must be followed by n or p, and %j by p; the expansion "
          "fails, and no task is started.\n"
          "    Write %tn, %tp or %jp with a number, or %% for a percent sign. [every task]\n" +
          path + ": 2 tasks, 1 error\n");
}

TEST(JobBatch, IsUnreadableIfTheFileIs) {
  const TempFolder folder;
  const std::string path = folder.file("none.xml");
  Prepared prepared;
  prepare({path, {}, ""}, &prepared);
  EXPECT_EQ(prepared.status, exitUnreadable);
  EXPECT_EQ(prepared.error,
            path +
                ": error RJ001: The adapter refuses the request with: Runlet adapter: Could not "
                "load parameter file " +
                path +
                ". Error='Failed to open file'.Exiting.\n"
                "    Give the path of a job file that the adapter can read.\n" +
                path + ": 0 tasks, 1 error\n");
  prepare({"", {}, ""}, &prepared);
  EXPECT_EQ(prepared.status, exitUnreadable);
  EXPECT_EQ(prepared.error,
            ": error RJ001: The path is empty; the adapter refuses the request without a message.\n"
            "    Give the path of a job file that the adapter can read.\n: 0 tasks, 1 error\n");
}

TEST(JobBatch, ReportsWarnings) {
  const TempFolder folder;
  Job job = jobOf(2);
  job.set("umask", "022");
  const std::string path = folder.write("job.xml", job.text());
  Prepared prepared;
  prepare({path, {}, ""}, &prepared);
  EXPECT_EQ(prepared.status, exitFine);
  EXPECT_EQ(prepared.error, "runlet-job: run: 1 warning; see: runlet-job check " + path + "\n");
}

TEST(JobBatch, RunsAsTheCallerUnlessThatIsRoot) {
  const TempFolder folder;
  Job job = jobOf(2);
  job.set("uid", "7");
  job.set("gid", "8");
  const std::string path = folder.write("job.xml", job.text());
  const auto asAnother = [&] {
    if (geteuid() == 0 && (setregid(otherId, otherId) != 0 || setreuid(otherId, otherId) != 0)) {
      _exit(2);
    }
    Batch batch;
    const int status = prepareBatch({path, {}, ""}, "run", &batch);
    const auto own = static_cast<std::int32_t>(geteuid());
    const auto ownGroup = static_cast<std::int32_t>(getegid());
    _exit(status == exitFine && batch.context.uid == own && batch.context.gid == ownGroup ? 0 : 3);
  };
  EXPECT_EXIT(
      asAnother(), testing::ExitedWithCode(0),
      "^runlet-job: run: the tasks run as user [0-9]+ and group [0-9]+ instead of the job's "
      "user 7 and group 8: only root can switch\n$");
}

// A job must state explicitly that its programs run as root.
TEST(JobBatch, OfRootNeedsAUser) {
  REQUIRE_ROOT();
  const TempFolder folder;
  Job job = jobOf(1);
  job.remove("uid");
  const std::string path = folder.write("job.xml", job.text());
  Prepared prepared;
  prepare({path, {}, ""}, &prepared);
  EXPECT_EQ(prepared.status, exitFailing);
  EXPECT_EQ(prepared.error,
            path +
                ":2:1: error RJ037: The job has no uid and the request no user name (-u); the "
                "adapter refuses every task with \"Missing user name\".\n"
                "    Write <uid> with the number of a user, or check with -u USER if the server "
                "gives it.\n" +
                path + ": 1 task, 1 error\n");
}

}  // namespace
}  // namespace runlet_tool
