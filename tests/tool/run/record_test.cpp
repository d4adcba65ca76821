// What run records of a batch, and what it does with a record.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <thread>

#include "adapter_test.h"
#include "fault_test.h"
#include "mounts.h"
#include "programs.h"
#include "tool/record/digest.h"
#include "tool/record/read.h"
#include "tool/record/store.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using runlet_tool::Attempt;
using runlet_tool::Ending;
using runlet_tool::Record;
using Strings = std::vector<std::string>;

// The names of the files in the folder, sorted.
Strings filesIn(const std::string& folder) {
  Strings names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// A job whose tasks are shell scripts.
class RecordedRun : public testing::Test {
 protected:
  RecordedRun() {
    job_.arguments = "/bin/sh -c \"%tp1\"";
    job_.set("TaskTimeout", "30").set("LogFolder", "logs");
  }

  void writeJob(const Strings& tasks) {
    job_.tasks = tasks;
    folder_.write("shot.xml", job_.text());
  }

  // Runs the job with a record of its own, or with one that the options name.
  ProcessResult run(const Strings& more = {}) {
    Strings arguments = {"run", jobFile_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProcessOptions options = tool(arguments);
    const ProcessResult result = runProcess(options);
    if (options.arguments.size() > arguments.size() + 1) recordFile_ = options.arguments.back();
    return result;
  }

  ProcessResult resume(const Strings& more = {}) {
    Strings arguments = {"--resume", recordFile_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }

  Record record() const {
    Record read;
    EXPECT_EQ(runlet_tool::readRecord(recordFile_, &read), "");
    return read;
  }

  // The attempts as "TASK.NUMBER END".
  Strings attempts() const {
    Strings texts;
    for (const Attempt& attempt : record().attempts) {
      texts.push_back(std::to_string(attempt.task) + "." + std::to_string(attempt.number) + " " +
                      (attempt.end ? describe(attempt.result) : "no end"));
    }
    return texts;
  }

  std::string totals(const ProcessResult& result) const {
    const std::string& text = result.output;
    const std::size_t begin = text.rfind('\n', text.size() - 2);
    return text.substr(begin == std::string::npos ? 0 : begin + 1);
  }

  // The warnings for a job that runs as root.
  std::string warnings() const {
    if (getuid() != 0) return "";
    return "runlet-job: run: 1 warning; see: runlet-job check " + jobFile_ + "\n";
  }

  void expectRefused(const ProcessResult& result, const std::string& error,
                     const std::string& status) const {
    expectTool(result, "", warnings() + "runlet-job: run: " + error + "\n", status);
  }

  TempFolder folder_;
  Job job_;
  const std::string jobFile_ = folder_.file("shot.xml");
  std::string recordFile_;
};

TEST_F(RecordedRun, HasWhatRanAndHowItEnded) {
  writeJob({"true", "exit 3", "kill -9 $$"});
  const ProcessResult result = run({"--jobs", "1"});
  const Record read = record();
  EXPECT_EQ(read.id, batchOf(result.error));
  ASSERT_EQ(read.sessions.size(), 1);
  const runlet_tool::Session& session = read.sessions[0];
  EXPECT_EQ(session.verb, "run");
  EXPECT_EQ(session.options, (Strings{jobFile_, "--jobs", "1", "--record", recordFile_}));
  EXPECT_EQ(session.job, jobFile_);
  EXPECT_EQ(session.digest.size(), 64);
  EXPECT_EQ(session.folder, folder_.path());
  EXPECT_EQ(session.uid, static_cast<std::int32_t>(getuid()));
  EXPECT_EQ(session.gid, static_cast<std::int32_t>(getgid()));
  EXPECT_EQ(session.process.process, result.pid);
  EXPECT_EQ(session.process.host, runlet_tool::ownProcess().host);
  EXPECT_EQ(session.timeLimit, 1800);
  EXPECT_TRUE(session.isWhole);
  EXPECT_EQ(session.tasks, (std::vector<std::int32_t>{1, 2, 3}));
  EXPECT_TRUE(session.end);
  EXPECT_EQ(session.stopReason, "");
  EXPECT_EQ(attempts(), (Strings{"1.1 succeeded", "2.1 failed with exit code 3",
                                 "3.1 killed by signal 9 (Killed)"}));
  const std::string logs = folder_.file("logs/shot-" + read.id + "/shot-");
  for (const Attempt& attempt : read.attempts) {
    SCOPED_TRACE(attempt.task);
    EXPECT_EQ(attempt.words, (Strings{"/bin/sh", "-c",
                                      job_.tasks.at(static_cast<std::size_t>(attempt.task) - 1)}));
    EXPECT_EQ(attempt.log, logs + std::to_string(attempt.task) + ".log");
    EXPECT_GE(modeOf(attempt.log), 0);
    EXPECT_GE(attempt.begin, session.begin);
    EXPECT_GE(*attempt.end, attempt.begin);
    EXPECT_LE(*attempt.end, *session.end);
    EXPECT_GT(attempt.process, 0);
    EXPECT_GT(attempt.processStart, 0);
    EXPECT_GT(attempt.wall, 0);
    EXPECT_GT(attempt.peakMemory, 0);
  }
}

// A missing limit means "at once" to the farm server, so jobs without one have a huge one.
TEST_F(RecordedRun, HasNoTimeLimitIfThatOfTheJobIsHuge) {
  const std::map<std::string, double> rows = {
      {"35790", 35790 * 60}, {"35791", 0}, {"35792", 0}, {"2147483647", 0}};
  for (const auto& [minutes, seconds] : rows) {
    job_.set("TaskTimeout", minutes);
    writeJob({"true"});
    run();
    EXPECT_EQ(record().sessions[0].timeLimit, seconds) << minutes;
    run({"--timeout", "90s"});
    EXPECT_EQ(record().sessions[0].timeLimit, 90) << minutes;
  }
}

TEST_F(RecordedRun, IsPrintedAsItGrows) {
  writeJob({"true", "false"});
  const ProcessResult result = run({"--json"});
  EXPECT_EQ(result.output, readFile(recordFile_));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
}

TEST_F(RecordedRun, IsResumedWithWhatHasNotSucceeded) {
  writeJob({"true", "test -e good", "true", "test -e good"});
  EXPECT_EQ(totals(run()), "4 tasks: 2 succeeded, 2 failed (2, 4)\n");
  const std::string first = readFile(recordFile_);
  EXPECT_EQ(totals(resume()), "2 tasks: 2 failed (2, 4)\n");
  folder_.write("good", "");
  EXPECT_EQ(totals(resume()), "2 tasks: 2 succeeded\n");
  EXPECT_EQ(attempts(), (Strings{"1.1 succeeded", "2.1 failed with exit code 1", "3.1 succeeded",
                                 "4.1 failed with exit code 1", "2.2 failed with exit code 1",
                                 "4.2 failed with exit code 1", "2.3 succeeded", "4.3 succeeded"}));
  EXPECT_TRUE(readFile(recordFile_).starts_with(first));
  for (const Attempt& attempt : record().attempts) EXPECT_GE(modeOf(attempt.log), 0) << attempt.log;
  expectRefused(resume(),
                "--resume: nothing to do: 4 tasks of batch " + record().id + " have succeeded",
                "exit 0");
}

// The job is the record's own if none is given.
TEST_F(RecordedRun, IsResumedWithoutAJob) {
  writeJob({"true", "test -e good"});
  run();
  folder_.write("good", "");
  EXPECT_EQ(totals(runTool({"run", "--resume", recordFile_})), "1 task: 1 succeeded\n");
}

TEST_F(RecordedRun, IsNotResumedIfTheJobHasChanged) {
  struct Row {
    Strings tasks;
    const char* changes;
    Strings attempts;  // that follow if the changes are accepted
  };
  const Row rows[] = {
      {{"true", "exit 4"},
       "task 2 is new or runs something else, and 1 task is gone or changed",
       {"2.2 failed with exit code 4"}},
      {{"exit 5", "true"},
       "task 1 is new or runs something else, and 1 task is gone or changed",
       {"1.2 failed with exit code 5"}},
      {{"true", "exit 3", "exit 4", "exit 5"},
       "tasks 3-4 are new or run something else",
       {"2.2 failed with exit code 3", "3.1 failed with exit code 4",
        "4.1 failed with exit code 5"}},
      {{"exit 3"}, "1 task is gone or changed", {"1.2 failed with exit code 3"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.changes);
    writeJob({"true", "exit 3"});
    run();
    writeJob(row.tasks);
    const std::string before = readFile(recordFile_);
    expectRefused(resume(),
                  "--resume: the job is not what batch " + record().id + " has run: " +
                      row.changes + "; nothing is run. --accept-changes resumes it as it is now",
                  "exit 2");
    EXPECT_EQ(readFile(recordFile_), before);
    resume({"--accept-changes"});
    Strings expected = {"1.1 succeeded", "2.1 failed with exit code 3"};
    expected.insert(expected.end(), row.attempts.begin(), row.attempts.end());
    EXPECT_EQ(attempts(), expected);
  }
}

// In the job's text, everything may change as long as the tasks stay the same.
TEST_F(RecordedRun, IsResumedIfOnlyTheTextOfTheJobHasChanged) {
  writeJob({"true", "exit 3"});
  run();
  writeJob({"exit 3", "true"});
  job_.set("umask", "63").set("TaskTimeout", "40");
  folder_.write("shot.xml", job_.text());
  EXPECT_EQ(totals(resume()), "1 task: 1 failed (1)\n");
}

TEST_F(RecordedRun, RefusesDamagedAndForeignRecords) {
  writeJob({"true"});
  run();
  const std::string sound = readFile(recordFile_);
  struct Row {
    std::string text;
    const char* complaint;
  };
  const Row rows[] = {
      {"", "not a record of runlet-job"},
      {"{\"event\":\"session\",\"version\":2}\n",
       "a record of version 2, and this program reads version 1"},
      {sound + "garbage\n" + "garbage\n", "damaged in line 6"},
      {sound.substr(0, sound.find('\n') + 1),
       "its run ended before any task was started: run the job anew"},
  };
  for (const Row& row : rows) {
    folder_.write("x.jsonl", row.text, 0600);
    for (const char* option : {"--resume", "--failed-of"}) {
      expectRefused(run({option, folder_.file("x.jsonl")}),
                    std::string(option) + ": " + folder_.file("x.jsonl") + ": " + row.complaint,
                    "exit 2");
    }
    EXPECT_EQ(readFile(folder_.file("x.jsonl")), row.text);
  }
}

TEST_F(RecordedRun, RefusesRecordsThatOthersCanChange) {
  writeJob({"exit 3"});
  run();
  const std::string record = recordFile_;
  const std::string before = readFile(record);
  for (const char* option : {"--resume", "--failed-of"}) {
    ASSERT_EQ(chmod(record.c_str(), 0620), 0);
    const std::string start = std::string(option) + ": " + record + ": ";
    expectRefused(run({option, record}), start + "others may write to the record", "exit 2");
    ASSERT_EQ(chmod(record.c_str(), 0600), 0);
    if (geteuid() != 0) continue;
    ASSERT_EQ(chown(record.c_str(), otherId, 0), 0);
    expectRefused(run({option, record}),
                  start + "the record belongs to user " + std::to_string(otherId), "exit 2");
    ASSERT_EQ(chown(record.c_str(), 0, 0), 0);
  }
  EXPECT_EQ(readFile(record), before);
}

TEST_F(RecordedRun, RunsOnlyWhatFailedInAnotherBatch) {
  writeJob({"true", "exit 3", "exit 4"});
  run();
  const std::string first = recordFile_;
  EXPECT_EQ(totals(run({"--failed-of", first})), "2 tasks: 2 failed (2-3)\n");
  EXPECT_NE(recordFile_, first);
  EXPECT_EQ(attempts(), (Strings{"2.1 failed with exit code 3", "3.1 failed with exit code 4"}));
  EXPECT_EQ(totals(runTool({"run", "--failed-of", first})), "2 tasks: 2 failed (2-3)\n");
  EXPECT_EQ(runTool({"run", "--failed-of", folder_.file("none.jsonl")}).error,
            "runlet-job: run: --failed-of: " + folder_.file("none.jsonl") +
                ": No such file or directory\n");
}

// What has failed does not vanish because it was edited.
TEST_F(RecordedRun, SaysWhatFailedAndIsNoLongerInTheJob) {
  writeJob({"true", "exit 3", "exit 4"});
  run();
  const std::string first = recordFile_;
  const std::string id = record().id;
  writeJob({"true", "exit 3", "true"});
  expectRefused(run({"--failed-of", first}),
                "--failed-of: 1 task that failed in batch " + id +
                    " is gone or changed; nothing is run. --accept-changes runs the others",
                "exit 2");
  EXPECT_EQ(totals(run({"--failed-of", first, "--accept-changes"})), "1 task: 1 failed (2)\n");
  writeJob({"true", "true", "true"});
  expectRefused(run({"--failed-of", first}),
                "--failed-of: 2 tasks that failed in batch " + id +
                    " are gone or changed; nothing is run. --accept-changes runs the others",
                "exit 2");
  expectRefused(
      run({"--failed-of", first, "--accept-changes"}),
      "--failed-of: nothing to do: the job no longer has any task that failed in batch " + id,
      "exit 0");
  run();
  const std::string last = record().id;
  expectRefused(run({"--failed-of", recordFile_}),
                "--failed-of: nothing to do: no task of batch " + last + " has failed", "exit 0");
}

// Also after the job has changed: tasks are known by what they run.
TEST_F(RecordedRun, RunsWhatFailedWhereverItIsNow) {
  writeJob({"true 1", "true 2", "test -e good", "true 4"});
  EXPECT_EQ(totals(run()), "4 tasks: 3 succeeded, 1 failed (3)\n");
  const std::string first = recordFile_;
  folder_.write("good", "");
  writeJob({"test -e good", "true 4", "true 1", "true 2"});
  EXPECT_EQ(totals(resume({"--accept-changes"})), "1 task: 1 succeeded\n");
  const std::string id = record().id;
  expectRefused(run({"--failed-of", first}),
                "--failed-of: nothing to do: no task of batch " + id + " has failed", "exit 0");

  writeJob({"exit 3", "exit 4", "true"});
  EXPECT_EQ(totals(run()), "3 tasks: 1 succeeded, 2 failed (1-2)\n");
  writeJob({"true x", "exit 5", "exit 3", "exit 4", "true"});
  EXPECT_EQ(totals(resume({"--accept-changes", "--halt", "soon"})),
            "4 tasks: 1 succeeded, 1 failed (2), 2 not started (3-4)\n");
  const std::string second = recordFile_;
  EXPECT_NE(runTool({"report", second}).output.find("5 tasks: 2 succeeded, 3 failed (2-4)\n"),
            std::string::npos);
  EXPECT_EQ(totals(run({"--failed-of", second})), "3 tasks: 3 failed (2-4)\n");
}

// The job file is replaced at different moments, also while it is read.
TEST_F(RecordedRun, HasTheDigestOfTheJobThatRan) {
  const std::string padding(2'000'000, '\n');  // so that reading takes a while
  writeJob({"true new"});
  const std::string newJob = readFile(jobFile_) + padding;
  writeJob({"true old"});
  const std::string oldJob = readFile(jobFile_) + padding;
  bool isRefused = false;
  for (int delay = 0; delay < 2000 && !isRefused; delay += 5) {
    folder_.write("shot.xml", oldJob);
    const std::string other = folder_.write("other.xml", newJob);
    std::thread replacing([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      std::filesystem::rename(other, jobFile_);
    });
    const ProcessResult result = run();
    replacing.join();
    isRefused = describeStatus(result.waitStatus) == "exit 2";
    if (isRefused) {
      expectRefused(result, jobFile_ + " changed while it was read; nothing is run", "exit 2");
    } else {
      const bool isNew = record().attempts.at(0).words.back() == "true new";
      EXPECT_EQ(record().sessions.at(0).digest, runlet_tool::digestOf(isNew ? newJob : oldJob));
    }
  }
  EXPECT_TRUE(isRefused);
}

// Tasks that were not given are not run, wherever they are now.
TEST_F(RecordedRun, IsResumedWithTheGivenTasks) {
  const Strings tasks = {"true 1", "true 2", "test -e good", "true 4", "true 5", "true 6"};
  writeJob(tasks);
  run({"--tasks", "2-3"});
  Strings longer = {"touch ran"};
  longer.insert(longer.end(), tasks.begin(), tasks.end());
  writeJob(longer);
  EXPECT_EQ(totals(resume()), "1 task: 1 failed (4)\n");
  folder_.write("good", "");
  writeJob(tasks);
  EXPECT_EQ(totals(resume()), "1 task: 1 succeeded\n");
  EXPECT_EQ(attempts(), (Strings{"2.1 succeeded", "3.1 failed with exit code 1",
                                 "4.1 failed with exit code 1", "3.2 succeeded"}));
  EXPECT_EQ(record().sessions[1].tasks, (std::vector<std::int32_t>{3, 4}));
  EXPECT_EQ(modeOf(folder_.file("ran")), -1);
  writeJob({"true 1", "true 2"});
  expectRefused(resume(),
                "--resume: the job is not what batch " + record().id +
                    " has run: 1 task is gone or changed; nothing is run. --accept-changes resumes "
                    "it as it is now",
                "exit 2");
}

TEST_F(RecordedRun, RunsGivenTasks) {
  writeJob({"true", "true", "true", "true", "true", "true"});
  run({"--tasks", "5-6,2"});
  EXPECT_EQ(attempts(), (Strings{"2.1 succeeded", "5.1 succeeded", "6.1 succeeded"}));
  EXPECT_FALSE(record().sessions[0].isWhole);
  expectRefused(run({"--tasks", "2,7"}), "no task 7: " + jobFile_ + " has 6 tasks", "exit 1");
  for (const char* list :
       {"0", "x", "", "1-", "-1", "3-2", "1,,2", "1;2", "99999999999", "1-20000000"}) {
    const ProcessResult result = run({"--tasks", list});
    expectTool(result, "",
               "runlet-job: --tasks: not a list of task numbers such as 2,5-9: " +
                   std::string(list) + "\nSee: runlet-job run --help\n",
               "exit 2");
  }
}

TEST_F(RecordedRun, FailsATaskWithoutItsFiles) {
  writeJob({"touch out_1.png", "true", "exit 3"});
  const ProcessResult result = run({"--expect", "out_%tn.png", "--expect", "./shot.xml"});
  EXPECT_EQ(attempts(), (Strings{"1.1 succeeded", "2.1 failed: no file out_2.png at its end",
                                 "3.1 failed with exit code 3"}));
  EXPECT_EQ(totals(result), "3 tasks: 1 succeeded, 2 failed (2-3)\n");
  for (const std::string pattern : {"%tx", "%jp1%j", "%tp9"}) {
    expectRefused(run({"--expect", pattern}),
                  "--expect: " + pattern + " cannot be filled in for task 1", "exit 2");
    const ProcessResult checked = runTool({"check", jobFile_, "--expect", pattern});
    EXPECT_EQ(checked.error,
              "runlet-job: check: --expect: " + pattern + " cannot be filled in for task 1\n");
    EXPECT_EQ(describeStatus(checked.waitStatus), "exit 1");
  }
  EXPECT_EQ(describeStatus(runTool({"check", jobFile_, "--expect", "%tn.png"}).waitStatus),
            "exit 0");
}

// With or without the job on the command line.
TEST_F(RecordedRun, IsResumedWithItsApplication) {
  folder_.write("tool", "#!/bin/sh\ntest -e good\n", 0755);
  job_.arguments = "tool %tp1";
  writeJob({"1"});
  EXPECT_EQ(totals(run({"-a", folder_.file("app")})), "1 task: 1 failed (1)\n");
  EXPECT_EQ(totals(resume()), "1 task: 1 failed (1)\n");
  folder_.write("good", "");
  EXPECT_EQ(totals(runTool({"run", "--resume", recordFile_})), "1 task: 1 succeeded\n");
}

TEST_F(RecordedRun, ExpectsTheSameFilesWhenItIsResumed) {
  writeJob({"true", "test ! -e late || touch made.2"});
  run({"--expect", "made.%tn", "--tasks", "2"});
  EXPECT_EQ(totals(resume()), "1 task: 1 failed (2)\n");
  folder_.write("late", "");
  EXPECT_EQ(totals(resume()), "1 task: 1 succeeded\n");
  EXPECT_EQ(attempts(), (Strings{"2.1 failed: no file made.2 at its end",
                                 "2.2 failed: no file made.2 at its end", "2.3 succeeded"}));
}

// Otherwise the same tasks would succeed without their files or their program.
TEST_F(RecordedRun, RunsWhatFailedWithTheSameExpectationAndApplication) {
  folder_.write("tool", "#!/bin/sh\nexit 0\n", 0755);
  job_.arguments = "tool %tp1";
  writeJob({"1"});
  const std::string failed = "1 task: 1 failed (1)\n";
  EXPECT_EQ(totals(run({"-a", folder_.file("app"), "--expect", "none.%tn"})), failed);
  const std::string first = recordFile_;
  EXPECT_EQ(totals(run({"--failed-of", first})), failed);
  EXPECT_EQ(attempts(), Strings{"1.1 failed: no file none.1 at its end"});
  EXPECT_EQ(totals(runTool({"run", "--failed-of", first})), failed);
  // An empty pattern expects nothing, from then on.
  EXPECT_EQ(totals(run({"--failed-of", first, "--expect", ""})), "1 task: 1 succeeded\n");
  recordFile_ = first;
  EXPECT_EQ(totals(resume({"--expect", ""})), "1 task: 1 succeeded\n");
}

// A signal that arrives while files are looked for neither fails the task nor starts another.
TEST_F(RecordedRun, TakesNoFileForMissingWhenItIsInterrupted) {
  // The task itself signals the run, right before it ends.
  writeJob({"kill -TERM $(cut -d' ' -f4 /proc/$$/stat)", "true"});
  const ProcessResult result = run({"--expect", "none", "--jobs", "1"});
  EXPECT_EQ(describeStatus(result.waitStatus), "signal 15");
  const Strings all = attempts();
  ASSERT_EQ(all.size(), 1);
  // If the signal is taken before the end of the task, the look is complete.
  EXPECT_TRUE(all[0] == "1.1 interrupted" || all[0] == "1.1 failed: no file none at its end")
      << all[0];
}

// A variable of a script that is not set must not run the whole job.
TEST_F(RecordedRun, RefusesEmptyValues) {
  writeJob({"true"});
  for (const char* option : {"--failed-of", "--record"}) {
    expectTool(
        run({option, ""}), "",
        "runlet-job: " + std::string(option) + ": the value is empty\nSee: runlet-job run --help\n",
        "exit 2");
  }
  expectTool(run({"--accept-changes"}), "",
             "runlet-job: --accept-changes requires --resume or --failed-of\n"
             "See: runlet-job run --help\n",
             "exit 2");
}

// Where the edited task was, its successor is now.
TEST_F(RecordedRun, IsResumedWithAnEditedTaskOfSeveral) {
  writeJob({"true", "exit 3", "true"});
  EXPECT_EQ(totals(run({"--tasks", "2-3"})), "2 tasks: 1 succeeded, 1 failed (2)\n");
  writeJob({"true", "true mended", "true"});
  expectRefused(resume(),
                "--resume: the job is not what batch " + record().id +
                    " has run: task 2 is new or runs something else, and 1 task is gone or "
                    "changed; nothing is run. --accept-changes resumes it as it is now",
                "exit 2");
  EXPECT_EQ(totals(resume({"--accept-changes"})), "1 task: 1 succeeded\n");
  EXPECT_EQ(record().sessions.back().tasks, (std::vector<std::int32_t>{2, 3}));
  writeJob({"exit 1"});
  expectRefused(resume({"--accept-changes"}),
                "--resume: the job has none of the tasks of batch " + record().id + " any more",
                "exit 2");
}

// Otherwise the report would go on showing what is gone, and the next resume be refused again.
TEST_F(RecordedRun, RecordsAcceptedChangesEvenIfNothingIsLeftToRun) {
  writeJob({"true", "exit 3"});
  run();
  writeJob({"true"});
  const std::string done =
      "--resume: nothing to do: 1 task of batch " + record().id + " has succeeded";
  expectRefused(resume({"--accept-changes"}), done, "exit 0");
  EXPECT_EQ(record().sessions.size(), 2);
  EXPECT_TRUE(record().sessions.back().end);
  EXPECT_EQ(record().sessions.back().tasks, std::vector<std::int32_t>{1});
  expectRefused(resume(), done, "exit 0");
  EXPECT_EQ(record().sessions.size(), 2);
}

TEST_F(RecordedRun, ReportsALimitOnTheSizeOfFiles) {
  writeJob(Strings(40, "true"));
  ProcessOptions options = tool({"run", jobFile_});
  options.prepare = [] {
    constexpr rlim_t size = 8 << 10;
    const rlimit tight{.rlim_cur = size, .rlim_max = size};
    if (setrlimit(RLIMIT_FSIZE, &tight) != 0) _exit(95);
  };
  // Coverage counters do not fit either.
  options.environment.emplace_back("LLVM_PROFILE_FILE", "/dev/null");
  const ProcessResult result = runProcess(options);
  EXPECT_TRUE(WIFEXITED(result.waitStatus)) << describeStatus(result.waitStatus);
  EXPECT_NE(result.error.find("cannot record the "), std::string::npos) << result.error;
  EXPECT_NE(result.error.find(": File too large; no further tasks are started\n"),
            std::string::npos)
      << result.error;
}

TEST_F(RecordedRun, KeepsOnlyLogsOfFailuresOnRequest) {
  writeJob({"true", "test -e good || { touch good; exit 3; }", "touch x.png", "true"});
  job_.set("umask", "511");  // not even its owner has any rights by it
  folder_.write("shot.xml", job_.text());
  run({"--keep-logs", "failed", "--retries", "1", "--expect", "x.png", "--tasks", "2-3"});
  std::map<std::string, std::string> logs;
  for (const Attempt& attempt : record().attempts) {
    const std::string name = std::to_string(attempt.task) + "." + std::to_string(attempt.number);
    logs[name] = attempt.log.substr(attempt.log.rfind('/') + 1);
  }
  EXPECT_EQ(logs,
            (std::map<std::string, std::string>{{"2.1", "shot-2.log"}, {"2.2", ""}, {"3.1", ""}}));
  const std::string folder = folder_.file("logs/shot-" + record().id);
  EXPECT_EQ(filesIn(folder), Strings{"shot-2.log"});

  // Without any log there is no folder.
  run({"--keep-logs", "failed", "--tasks", "1,4"});
  EXPECT_EQ(modeOf(folder_.file("logs/shot-" + record().id)), -1);
  run({"--keep-logs", "all", "--tasks", "1,4"});
  EXPECT_EQ(filesIn(folder_.file("logs/shot-" + record().id)),
            (Strings{"shot-1.log", "shot-4.log"}));
}

// Who can write to the folder above the logs can exchange theirs while the batch runs.
TEST_F(RecordedRun, UsesNoLinkInPlaceOfItsLogFolder) {
  const std::string script =
      folder_.write("script", "cd " + folder_.file("logs") +
                                  "; name=$(echo shot-*); mv $name moved; ln -s ../kept $name\n"
                                  "exit 3\n");
  writeJob({". " + script, "true"});
  folder_.makeFolder("kept");
  for (const char* name : {"kept/shot-1.log", "kept/shot-2.log"}) folder_.write(name, "kept\n");
  run({"--keep-logs", "failed"});
  EXPECT_EQ(attempts(),
            (Strings{"1.1 failed with exit code 3",
                     std::string("2.1 cannot open log (") + std::strerror(EPERM) + ")"}));
  EXPECT_EQ(readFile(folder_.file("kept/shot-1.log")), "kept\n");
  EXPECT_EQ(readFile(folder_.file("kept/shot-2.log")), "kept\n");
  EXPECT_EQ(filesIn(folder_.file("logs/moved")), Strings{"shot-1.log"});
  const std::string report = runTool({"report", recordFile_}).output;
  EXPECT_NE(report.find("/shot-1.log\n      cannot be read: its folder is a link\n"),
            std::string::npos)
      << report;
  expectRefused(resume(), "cannot write logs to " + folder_.file("logs/shot-ID") + ": it is a link",
                "exit 2");
}

TEST_F(RecordedRun, SaysWhenTheDiskOfALogIsFull) {
  REQUIRE_MOUNTS();
  writeJob({"true", "head -c 1000000 /dev/zero; true", "true"});
  const std::string disk = folder_.makeFolder("logs");
  ProcessOptions options = tool({"run", jobFile_, "--quiet", "--jobs", "1", "--keep-logs", "all"});
  options.prepare = [&] {
    if (!enterOwnMounts() || mount("none", disk.c_str(), "tmpfs", 0, "size=256k") != 0) _exit(95);
  };
  recordFile_ = options.arguments.back();
  const ProcessResult result = runProcess(options);
  const std::string log = disk + "/shot-ID/shot-";
  const auto line = [&](int task) {
    const std::string number = std::to_string(task);
    return "runlet-job: run: task " + number +
           ": its log may be incomplete, the disk is full: " + log + number + ".log\n";
  };
  expectTool(result, "3 tasks: 3 succeeded\n", warnings() + line(2) + line(3), "exit 0");
  const std::vector<Attempt>& attempts = record().attempts;
  ASSERT_EQ(attempts.size(), 3);
  for (const Attempt& attempt : attempts) EXPECT_EQ(attempt.isDiskFull, attempt.task > 1);
}

TEST_F(RecordedRun, RefusesAJobThatIsRunning) {
  writeJob({"touch begun; while ! test -e go; do sleep 0.01; done"});
  ProcessOptions options = tool({"run", jobFile_});
  const std::string first = options.arguments.back();
  Process running(options);
  while (modeOf(folder_.file("begun")) == -1) std::this_thread::yield();
  const ProcessResult second = run();
  EXPECT_EQ(second.error.find(warnings() + "runlet-job: run: " + jobFile_ + ": process " +
                              std::to_string(running.pid()) + " on "),
            0)
      << second.error;
  EXPECT_EQ(describeStatus(second.waitStatus), "exit 2");
  // A copy of the job is another job, but its record is the same one.
  folder_.write("copy.xml", readFile(jobFile_));
  const ProcessResult resumed = runTool({"run", folder_.file("copy.xml"), "--resume", first});
  EXPECT_TRUE(std::regex_search(resumed.error,
                                std::regex("runlet-job: run: --resume: [-0-9a-f]+: process " +
                                           std::to_string(running.pid()) + " on .* is running it")))
      << resumed.error;
  EXPECT_EQ(describeStatus(resumed.waitStatus), "exit 2");
  folder_.write("go", "");
  EXPECT_EQ(describeStatus(running.finish().waitStatus), "exit 0");
  EXPECT_EQ(describeStatus(run().waitStatus), "exit 0");
}

// A task of a killed run that nothing has ended: here, this process.
TEST_F(RecordedRun, IsNotResumedWhileATaskIsRunning) {
  writeJob({"exit 3"});
  run();
  std::string text = readFile(recordFile_);
  text.resize(text.find("{\"event\":\"end\""));
  const std::regex process("\"pid\":[0-9]+,\"pidStart\":[0-9]+\\}");
  const runlet_tool::ProcessName own = runlet_tool::ownProcess();
  text = std::regex_replace(text, process,
                            "\"pid\":" + std::to_string(own.process) +
                                ",\"pidStart\":" + std::to_string(own.start) + "}");
  folder_.write("record.jsonl", text, 0600);
  ProcessOptions options = tool({"run", jobFile_, "--resume", folder_.file("record.jsonl")});
  options.environment.insert(options.environment.end(),
                             {{"LD_PRELOAD", faultsPath},
                              {"RUNLET_FAULT", "fast-clock"},
                              {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
  const std::string id = record().id;
  const std::string task = "task 1 of batch " + id;
  expectRefused(runProcess(options),
                "waiting up to 15 s for " + task +
                    ", whose run was killed\nrunlet-job: run: --resume: " + task +
                    " is still running: see runlet-job report " + folder_.file("record.jsonl"),
                "exit 2");
}

// A run that is killed leaves its claim and no end.
TEST_F(RecordedRun, IsResumedAfterItWasKilled) {
  writeJob({"true", "touch begun; test -e go || sleep 30", "true"});
  ProcessOptions options = tool({"run", jobFile_});
  recordFile_ = options.arguments.back();
  Process running(options);
  while (modeOf(folder_.file("begun")) == -1) std::this_thread::yield();
  kill(running.pid(), SIGKILL);
  running.finish();
  EXPECT_EQ(attempts(), (Strings{"1.1 succeeded", "2.1 no end"}));
  EXPECT_FALSE(record().sessions[0].end);
  folder_.write("go", "");
  EXPECT_EQ(totals(resume()), "2 tasks: 2 succeeded\n");
  EXPECT_EQ(attempts(), (Strings{"1.1 succeeded", "2.1 no end", "2.2 succeeded", "3.1 succeeded"}));
}

// No task may run twice at the same time, whatever option is used.
TEST_F(RecordedRun, WaitsForTasksOfARunThatWasKilled) {
  writeJob({"touch begun; until test -e go; do sleep 0.01; done"});
  ProcessOptions options = tool({"run", jobFile_, "--jobs", "1"});
  recordFile_ = options.arguments.back();
  Process running(options);
  ASSERT_TRUE(eventually([&] { return modeOf(folder_.file("begun")) != -1; }));
  // With the process that would end the task.
  const pid_t starter = starterOf(running.pid());
  ASSERT_GT(starter, 0);
  kill(running.pid(), SIGSTOP);
  kill(starter, SIGKILL);
  kill(running.pid(), SIGKILL);
  running.finish();
  const Record killed = record();
  const std::string killedFile = recordFile_;
  ASSERT_EQ(killed.attempts.size(), 1);

  ProcessOptions again = tool({"run", jobFile_});
  again.environment.insert(again.environment.end(), {{"LD_PRELOAD", faultsPath},
                                                     {"RUNLET_FAULT", "fast-clock"},
                                                     {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
  const std::string task = "task 1 of batch " + killed.id;
  for (int i = 0; i < 2; ++i) {
    expectRefused(runProcess(again),
                  "waiting up to 15 s for " + task +
                      ", whose run was killed\nrunlet-job: run: " + jobFile_ + ": " + task +
                      " is still running: see runlet-job report " + killedFile,
                  "exit 2");
  }
  folder_.write("go", "");
  EXPECT_EQ(totals(run()), "1 task: 1 succeeded\n");
}

TEST_F(RecordedRun, RefusesAJobThatIsRunningWhateverItsPath) {
  writeJob({"touch begun; until test -e go; do sleep 0.01; done"});
  Process running(tool({"run", jobFile_}));
  ASSERT_TRUE(eventually([&] { return modeOf(folder_.file("begun")) != -1; }));
  ASSERT_EQ(symlink("shot.xml", folder_.file("link.xml").c_str()), 0);
  for (const char* path : {"link.xml", "./shot.xml"}) {
    const ProcessResult second = runTool({"run", folder_.file(path)});
    EXPECT_NE(second.error.find(": process " + std::to_string(running.pid()) + " on "),
              std::string::npos)
        << second.error;
    EXPECT_EQ(describeStatus(second.waitStatus), "exit 2");
  }
  folder_.write("go", "");
  running.finish();
}

TEST_F(RecordedRun, ClaimsNothingAfterItsEnd) {
  writeJob({"touch begun; sleep 30"});
  ProcessOptions options = tool({"run", jobFile_});
  recordFile_ = options.arguments.back();
  Process running(options);
  ASSERT_TRUE(eventually([&] { return modeOf(folder_.file("begun")) != -1; }));
  EXPECT_EQ(claimsOf(recordFile_).size(), 2);
  kill(running.pid(), SIGTERM);
  EXPECT_EQ(describeStatus(running.finish().waitStatus), "signal 15");
  EXPECT_EQ(claimsOf(recordFile_), Strings());
}

// Even if the end of the session still fits, as its line is shorter.
TEST_F(RecordedRun, FailsIfTheEndOfATaskIsNotRecorded) {
  writeJob({"true"});
  const std::string missing = folder_.path() + std::string(300, '/') + "none";
  run({"--expect", missing});
  const std::size_t end = readFile(recordFile_).find("{\"event\":\"end\"");
  ProcessOptions options = tool({"run", jobFile_, "--quiet", "--expect", missing});
  recordFile_ = options.arguments.back();
  options.prepare = [=] {
    const rlim_t size = end + 250;
    const rlimit tight{.rlim_cur = size, .rlim_max = size};
    std::signal(SIGXFSZ, SIG_IGN);
    if (setrlimit(RLIMIT_FSIZE, &tight) != 0) _exit(95);
  };
  // Coverage counters do not fit either.
  options.environment.emplace_back("LLVM_PROFILE_FILE", "/dev/null");
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(withoutBatchLine(result.error),
            warnings() +
                "runlet-job: run: cannot record the end of a task: File too large; "
                "no further tasks are started\n");
  EXPECT_EQ(totals(result), "1 task: 1 failed (1)\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
  EXPECT_EQ(attempts(), Strings{"1.1 no end"});
  EXPECT_EQ(record().sessions[0].stopReason, "cannot record the end of a task: File too large");
}

// A record without tasks would be the last one of its job.
TEST_F(RecordedRun, LeavesNoRecordThatCouldNotBeBegun) {
  writeJob({"touch ran"});
  ProcessOptions options = tool({"run", jobFile_});
  recordFile_ = options.arguments.back();
  options.prepare = [] {
    constexpr rlim_t size = 1 << 10;
    const rlimit tight{.rlim_cur = size, .rlim_max = size};
    std::signal(SIGXFSZ, SIG_IGN);
    if (setrlimit(RLIMIT_FSIZE, &tight) != 0) _exit(95);
  };
  // Coverage counters do not fit either.
  options.environment.emplace_back("LLVM_PROFILE_FILE", "/dev/null");
  job_.set("WorkingFolder", folder_.path() + std::string(600, '/'));
  writeJob({"touch ran"});
  expectRefused(runProcess(options), "cannot write the record " + recordFile_ + ": File too large",
                "exit 2");
  EXPECT_EQ(modeOf(recordFile_), -1);
  EXPECT_EQ(filesIn(folder_.file("logs")), Strings());
}

TEST_F(RecordedRun, NeedsItsRunFolder) {
  job_.set("WorkingFolder", folder_.file("none"));
  writeJob({"true"});
  expectRefused(
      run(), "cannot enter the run folder " + folder_.file("none") + ": No such file or directory",
      "exit 2");
  EXPECT_EQ(modeOf(folder_.file("none")), -1);
}

TEST_F(RecordedRun, IsNotBegunWithoutARecord) {
  writeJob({"touch ran"});
  struct Row {
    std::string file;
    std::string complaint;
  };
  const Row rows[] = {
      {folder_.file("none/record"), "cannot create the record: "},
      {jobFile_, "cannot write the record " + jobFile_ + ": File exists"},
      {"/dev/full", ""},
  };
  for (const Row& row : rows) {
    const ProcessResult result = run({"--record", row.file});
    EXPECT_NE(result.error.find(row.complaint), std::string::npos) << result.error;
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
    EXPECT_EQ(modeOf(folder_.file("ran")), -1);
  }
}

}  // namespace
}  // namespace runlet_test
