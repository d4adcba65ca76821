// How make's self-check reports a job file that differs from the intended job.

#include <gtest/gtest.h>

#include "temp_folder.h"
#include "tool/make/writer.h"

namespace runlet_tool {
namespace {

using Strings = std::vector<std::string>;

runlet::AdapterContext meantJob() {
  runlet::AdapterContext job;
  job.arguments = "run a b %tp1";
  job.workingFolder = "/srv";
  job.logFolder = "/log";
  job.outputs = "/out";
  job.taskNameIdx = 1;
  job.taskTimeout = 2;
  job.uid = 3;
  job.gid = 4;
  job.umask = 5;
  job.taskList.assign({"x", "y"});
  job.paramNames.assign({"n"});
  job.paramValues.assign({"v"});
  return job;
}

// The complaint if `written` was intended to be meantJob() with those words.
std::string foundIn(const runlet::AdapterContext& written, const std::string& argumentTemplate,
                    const Strings& words) {
  const runlet_test::TempFolder folder;
  const std::string path = folder.write("job.xml", jobText(written, argumentTemplate));
  Complaint complaint;
  const bool arrives = arrivesAsMeant(path, meantJob(), words, &complaint);
  EXPECT_EQ(arrives, complaint.text.empty());
  return complaint.text;
}

TEST(SelfCheck, ComparesTheWords) {
  const runlet::AdapterContext job = meantJob();
  const std::string first = "task 1 would not get the words of the command";
  EXPECT_EQ(foundIn(job, "run a b %tp1", {"run", "a", "b", "%tp1"}), "");
  EXPECT_EQ(foundIn(job, "run \"a b\" %tp1", {"run", "a b", "%tp1"}), "");
  EXPECT_EQ(foundIn(job, "run a b %tp1", {"run", "a b", "%tp1"}), first);
  EXPECT_EQ(foundIn(job, "run a b", {"run", "a", "b", "%tp1"}), first);
  EXPECT_EQ(foundIn(job, "run a b %tx", {"run", "a", "b", "%tp1"}), first);
  EXPECT_EQ(foundIn(job, "run a b x", {"run", "a", "b", "%tp1"}),
            "task 2 would not get the words of the command");
  EXPECT_EQ(foundIn(job, "anything", {"run a b %tp1"}), "");
}

TEST(SelfCheck, ComparesTheFields) {
  using Change = void (*)(runlet::AdapterContext * job);
  constexpr Change changes[] = {
      [](runlet::AdapterContext* job) { job->workingFolder = "/srv2"; },
      [](runlet::AdapterContext* job) { job->logFolder = ""; },
      [](runlet::AdapterContext* job) { job->outputs = "/else"; },
      [](runlet::AdapterContext* job) { job->taskNameIdx = 0; },
      [](runlet::AdapterContext* job) { job->taskTimeout = 0; },
      [](runlet::AdapterContext* job) { job->uid = 0; },
      [](runlet::AdapterContext* job) { job->gid = 0; },
      [](runlet::AdapterContext* job) { job->umask = 0; },
      [](runlet::AdapterContext* job) { job->redirectStderr = false; },
      [](runlet::AdapterContext* job) { job->taskList.pop_back(); },
      [](runlet::AdapterContext* job) { job->paramNames.front() = "other"; },
      [](runlet::AdapterContext* job) { job->paramValues.front() = "other"; },
  };
  for (const Change change : changes) {
    runlet::AdapterContext job = meantJob();
    change(&job);
    EXPECT_EQ(foundIn(job, "x", {"x"}), "the job would not be loaded as intended");
  }
}

TEST(SelfCheck, ReportsInTheAdaptersWords) {
  EXPECT_EQ(foundIn(meantJob(), "", {"x"}), "Runlet adapter: Strip brace failed.");
}

}  // namespace
}  // namespace runlet_tool
