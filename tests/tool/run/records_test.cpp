// Listing and removing records.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "adapter_test.h"
#include "mounts.h"
#include "programs.h"
#include "tool/record/digest.h"
#include "tool/record/store.h"
#include "tool/text/fields.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

// Records of an ordinary user in a state folder of their own.
class StoredRecords : public testing::Test {
 protected:
  StoredRecords() {
    Job job;
    job.arguments = "/bin/sh -c \"%tp1\"";
    job.set("TaskTimeout", "30").set("LogFolder", "logs");
    job.set("uid", std::to_string(user())).set("gid", std::to_string(user()));
    job.tasks = {"true", "exit 3"};
    folder_.write("shot.xml", job.text());
    chmod(folder_.path().c_str(), 0777);
  }

  static unsigned user() {
    return geteuid() == 0 ? otherId : geteuid();
  }

  // `isCoarse`: with a clock that only knows whole seconds.
  ProcessResult run(const std::vector<std::string>& arguments, const char* state = nullptr,
                    bool isCoarse = false) const {
    ProcessOptions options = tool(arguments);
    options.arguments = {ownTool()};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.environment.back().second = state != nullptr ? state : folder_.file("state");
    if (isCoarse) {
      options.environment.insert(options.environment.end(),
                                 {{"LD_PRELOAD", folder_.file("faults.so")},
                                  {"RUNLET_FAULT", "coarse-clock"},
                                  {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    }
    options.prepare = [] {
      if (geteuid() == 0 && (setgid(otherId) != 0 || setuid(otherId) != 0)) _exit(1);
    };
    return runProcess(options);
  }

  // A copy of the program that other users may execute.
  std::string ownTool() const {
    const std::string path = folder_.file("runlet-job");
    std::filesystem::copy_file(toolPath, path, std::filesystem::copy_options::skip_existing);
    return path;
  }

  // Runs the job, and returns the id of the batch.
  std::string runBatch() const {
    return batchOf(run({"run", folder_.file("shot.xml")}).error);
  }

  // The lines of the list without the times at which the batches began.
  std::string list() const {
    const ProcessResult result = run({"records", "list"});
    EXPECT_EQ(result.error, "");
    return withoutTimes(result.output);
  }

  static std::string withoutTimes(std::string text) {
    constexpr std::size_t length = sizeof "2026-11-22 21:15:30 UTC  " - 1;
    for (std::size_t at = text.find("  20"); at != std::string::npos;
         at = text.find("  20", at + 1)) {
      text.erase(at + 2, length);
    }
    return text;
  }

  std::string line(const std::string& id) const {
    return id + "  finished: 2 tasks, 1 succeeded  " + folder_.file("shot.xml") + "\n";
  }

  bool hasLogs(const std::string& id) const {
    return modeOf(folder_.file("logs/shot-" + id + "/shot-1.log")) != -1;
  }

  // A file in the state folder that is no record, as the user would have it.
  std::string writeDamaged(const std::string& id) const {
    const std::string path = folder_.write("state/runlet-job/" + id + ".jsonl", "{}\n");
    EXPECT_EQ(chown(path.c_str(), user(), user()), 0);
    EXPECT_EQ(chmod(path.c_str(), 0600), 0);
    return path;
  }

  // A claim on it by a process that has ended. Returns its path.
  std::string claimOfEnded(const std::string& what, const std::string& record) const {
    const runlet_tool::ProcessName own = runlet_tool::ownProcess();
    const std::string name = runlet_tool::digestOf(what).substr(0, 32) + ".0.0.1";
    const std::string path =
        folder_.write("state/runlet-job/claims/" + name,
                      R"({"bytes":false,"record":")" + record + R"(","host":")" + own.host +
                          R"(","boot":")" + own.boot + R"(","pidSpace":)" +
                          std::to_string(own.space) + R"(,"pid":)" + std::to_string(own.process) +
                          R"(,"pidStart":)" + std::to_string(own.start + 1) + "}\n");
    EXPECT_EQ(chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(chown(path.c_str(), user(), user()), 0);
    return path;
  }

  // A claim on it by a process of another machine. Returns its path.
  std::string claimElsewhere(const std::string& what) const {
    const std::string name = runlet_tool::digestOf(what).substr(0, 32) + ".0.7.1";
    const std::string path = folder_.write(
        "state/runlet-job/claims/" + name,
        R"({"bytes":false,"record":"/r","host":"far-away","boot":"b","pidSpace":1,"pid":7,"pidStart":1})"
        "\n");
    EXPECT_EQ(chmod(path.c_str(), 0644), 0);
    return path;
  }

  TempFolder folder_;
};

TEST_F(StoredRecords, AreListed) {
  EXPECT_EQ(list(), "");
  const std::string id = runBatch();
  ASSERT_NE(id, "");
  EXPECT_EQ(list(), line(id));
}

TEST_F(StoredRecords, AreListedForPrograms) {
  std::filesystem::copy_file(folder_.file("shot.xml"), folder_.file("shot\xff.xml"));
  ASSERT_EQ(chmod(folder_.file("shot\xff.xml").c_str(), 0644), 0);
  const std::string id = runBatch();
  const std::string other = batchOf(run({"run", folder_.file("shot\xff.xml")}).error);
  const ProcessResult result = run({"records", "list", "--json"});
  const std::string begin = "\"begin\":";
  std::string output;
  for (const std::string_view line : runlet_tool::split('\n', result.output)) {
    const std::size_t time = line.find(begin) + begin.size();
    if (line.empty()) continue;
    EXPECT_GT(std::stod(std::string(line.substr(time))), 1.7e9);
    output.append(line.substr(0, time)).append(line.substr(line.find(',', time))).append("\n");
  }
  const auto expected = [&](const std::string& batch, const char* job, const char* inBytes) {
    return "{\"id\":\"" + batch +
           R"(","begin":,"state":"finished","tasks":2,"succeeded":1,"job":")" + folder_.file(job) +
           R"(","path":")" + folder_.file("state/runlet-job/") + batch + R"(.jsonl","bytes":)" +
           inBytes + "}\n";
  };
  EXPECT_EQ(output,
            expected(id, "shot.xml", "false") + expected(other, R"(shot\u00ff.xml)", "true"));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

TEST_F(StoredRecords, AreRemovedWithTheirLogs) {
  const std::string first = runBatch();
  const std::string second = runBatch();
  EXPECT_TRUE(hasLogs(first));
  const ProcessResult shown = run({"records", "prune", first, "--dry-run"});
  EXPECT_EQ(withoutTimes(shown.output), "would remove " + line(first));
  EXPECT_TRUE(hasLogs(first));
  const ProcessResult removed = run({"records", "prune", first});
  EXPECT_EQ(withoutTimes(removed.output), "removed " + line(first));
  EXPECT_EQ(modeOf(folder_.file("logs/shot-" + first)), -1);
  EXPECT_TRUE(hasLogs(second));
  EXPECT_EQ(list(), line(second));
}

TEST_F(StoredRecords, AreRemovedByAge) {
  const std::string id = runBatch();
  expectTool(run({"records", "prune", "--older-than", "1d"}), "", "", "exit 0");
  EXPECT_EQ(list(), line(id));
  EXPECT_EQ(withoutTimes(run({"records", "prune", "--older-than", "0d"}).output),
            "removed " + line(id));
  EXPECT_EQ(list(), "");
}

// Other files in the log folder stay, and logs that are gone do not matter.
TEST_F(StoredRecords, AreRemovedWithoutAnythingElse) {
  const std::string id = runBatch();
  const std::string logs = "logs/shot-" + id;
  ASSERT_EQ(unlink(folder_.file(logs + "/shot-1.log").c_str()), 0);
  folder_.write(logs + "/other", "");
  run({"records", "prune", id});
  EXPECT_EQ(modeOf(folder_.file(logs + "/shot-2.log")), -1);
  EXPECT_EQ(modeOf(folder_.file(logs + "/other")), 0644);
}

TEST_F(StoredRecords, AreNotRemovedIfTheirLogsCannotBe) {
  const std::string id = runBatch();
  const std::string logs = folder_.file("logs/shot-" + id);
  ASSERT_EQ(chmod(logs.c_str(), 0500), 0);
  expectTool(run({"records", "prune", id}), "",
             "runlet-job: records: " + id + ": cannot remove its logs: Permission denied\n",
             "exit 2");
  EXPECT_EQ(list(), line(id));
  ASSERT_EQ(chmod(logs.c_str(), 0700), 0);
  const std::string state = folder_.file("state/runlet-job");
  ASSERT_EQ(chmod(state.c_str(), 0500), 0);
  expectTool(run({"records", "prune", id}), "",
             "runlet-job: records: " + id + ": cannot remove it: Permission denied\n", "exit 2");
  EXPECT_EQ(list(), line(id));
}

// Another user who could write to the folder above could otherwise keep the record there forever.
TEST_F(StoredRecords, AreRemovedWithoutLogsThatALinkLeadsTo) {
  const std::string id = runBatch();
  const std::string logs = folder_.file("logs/shot-" + id);
  ASSERT_EQ(rename(logs.c_str(), folder_.file("logs/moved").c_str()), 0);
  std::filesystem::create_directory_symlink("moved", logs);
  const ProcessResult removed = run({"records", "prune", id});
  EXPECT_EQ(withoutTimes(removed.output), "removed " + line(id));
  EXPECT_EQ(removed.error, "runlet-job: records: " + id +
                               ": 2 logs could not be removed: their folder is a link\n");
  EXPECT_TRUE(hasLogs(id));
  EXPECT_EQ(list(), "");
}

// Such a record may name any file as a log. The others are listed and removed.
TEST_F(StoredRecords, ThatOthersMayHaveWrittenAreRefused) {
  const std::string id = runBatch();
  const std::string other = runBatch();
  const std::string record = folder_.file("state/runlet-job/" + id + ".jsonl");
  const auto expectRefusal = [&](const std::string& reason) {
    const std::string error = "runlet-job: records: " + id + ": " + reason + "\n";
    const ProcessResult listed = run({"records", "list"});
    EXPECT_EQ(listed.error, error);
    EXPECT_EQ(withoutTimes(listed.output), line(other));
    EXPECT_EQ(describeStatus(listed.waitStatus), "exit 2");
    expectTool(run({"records", "prune", id, "--dry-run"}), "", error, "exit 2");
    const ProcessResult pruned = run({"records", "prune", "--dry-run", "--older-than", "0d"});
    EXPECT_EQ(pruned.error, error);
    EXPECT_EQ(withoutTimes(pruned.output), "would remove " + line(other));
    expectTool(run({"records", "prune", id}), "", error, "exit 2");
    EXPECT_TRUE(hasLogs(id));
    EXPECT_NE(modeOf(record), -1);
  };
  ASSERT_EQ(chmod(record.c_str(), 0622), 0);
  expectRefusal("others may write to the record");
  REQUIRE_ROOT();
  ASSERT_EQ(chmod(record.c_str(), 0644), 0);
  ASSERT_EQ(chown(record.c_str(), 62001, 62001), 0);
  expectRefusal("the record belongs to user 62001");
}

// Nothing has run of a batch that was killed before it had recorded its tasks.
TEST_F(StoredRecords, WithoutTasksAreListedAndRemoved) {
  const std::string id = runBatch();
  const std::string record = folder_.file("state/runlet-job/" + id + ".jsonl");
  const std::string text = readFile(record);
  ASSERT_EQ(truncate(record.c_str(), static_cast<off_t>(text.find('\n') + 1)), 0);
  const std::string line =
      id + "  killed: 0 tasks, 0 succeeded  " + folder_.file("shot.xml") + "\n";
  EXPECT_EQ(list(), line);
  EXPECT_EQ(withoutTimes(run({"records", "prune", id}).output), "removed " + line);
  EXPECT_EQ(list(), "");
}

TEST_F(StoredRecords, ThatAreDamagedOrMissingAreReported) {
  const std::string id = runBatch();
  const std::string state = folder_.file("state/runlet-job/");
  const std::string bad = "20200101-000000-0000";
  writeDamaged(bad);
  const ProcessResult result = run({"records", "list"});
  EXPECT_EQ(withoutTimes(result.output), line(id));
  EXPECT_EQ(result.error, "runlet-job: records: " + bad + ": not a record of runlet-job\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
  struct Row {
    std::string id;
    const char* complaint;
  };
  const Row rows[] = {
      {"20200101-000000-0001", "No such file or directory"},
      {state + bad + ".jsonl", "not the id of a record"},
      {"last", "not the id of a record"},
  };
  for (const Row& row : rows) {
    expectTool(run({"records", "prune", row.id}), "",
               "runlet-job: records: " + row.id + ": " + row.complaint + "\n", "exit 2");
  }
  expectTool(run({"records", "prune", bad}),
             "removed " + bad + ", but no logs: not a record of runlet-job\n", "", "exit 0");
  EXPECT_EQ(list(), line(id));
}

// Such a record may be that of a newer version, or of a batch that is running.
TEST_F(StoredRecords, ThatAreDamagedAreRemovedOnlyIfNamed) {
  runBatch();
  const std::string id = "20200101-000000-0000";
  const std::string record = writeDamaged(id);
  const std::string damage = id + ": not a record of runlet-job\n";
  const std::string text = id + ", but no logs: not a record of runlet-job\n";
  expectTool(run({"records", "prune", "--older-than", "1d"}), "", "runlet-job: records: " + damage,
             "exit 2");
  expectTool(run({"records", "prune", id, "--older-than", "9999d"}), "", "", "exit 0");
  expectTool(run({"records", "prune", id, "--older-than", "1d", "--dry-run"}),
             "would remove " + text, "", "exit 0");
  EXPECT_NE(modeOf(record), -1);
  expectTool(run({"records", "prune", id, "--older-than", "1d"}), "removed " + text, "", "exit 0");
  EXPECT_EQ(modeOf(record), -1);
}

// A regular call with --older-than must not fail each time that something runs.
TEST_F(StoredRecords, ThatAreYoungOrRunningAreNoErrorByAge) {
  const std::string id = runBatch();
  const std::string text = "runlet-job: records: " + id + ": ";
  const std::string record = folder_.file("state/runlet-job/" + id + ".jsonl");
  const std::string path = claimElsewhere(id);
  const std::string claimed =
      text + "process 7 on far-away is running it; if it has ended, remove " + path + "\n";
  expectTool(run({"records", "prune", "--older-than", "0d"}), "", "", "exit 0");
  expectTool(run({"records", "prune", id, "--older-than", "0d"}), "", claimed, "exit 2");
  expectTool(run({"records", "prune", id, "--older-than", "1d"}), "", "", "exit 0");
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(chmod(record.c_str(), 0622), 0);
  const std::string distrusted = text + "others may write to the record\n";
  expectTool(run({"records", "prune", "--older-than", "1d"}), "", "", "exit 0");
  expectTool(run({"records", "prune", id, "--older-than", "1d"}), "", distrusted, "exit 2");
  expectTool(run({"records", "prune", "--older-than", "0d"}), "", distrusted, "exit 2");
  ASSERT_EQ(chmod(record.c_str(), 0600), 0);
  ASSERT_EQ(truncate(record.c_str(), 10), 0);
  expectTool(run({"records", "prune", "--older-than", "1d"}), "", "", "exit 0");
  expectTool(run({"records", "prune", "--older-than", "0d"}), "",
             text + "not a record of runlet-job\n", "exit 2");
}

// So that nobody resumes the batch meanwhile.
TEST_F(StoredRecords, AreClaimedWhileTheyAreRemoved) {
  const std::string id = runBatch();
  const std::string claims = folder_.file("state/runlet-job/claims");
  ASSERT_EQ(chmod(claims.c_str(), 0500), 0);
  EXPECT_EQ(withoutTimes(run({"records", "prune", id, "--dry-run"}).output),
            "would remove " + line(id));
  const std::string error = "runlet-job: records: " + id + ": " + claims + ": Permission denied\n";
  expectTool(run({"records", "prune", id}), "", error, "exit 2");
  expectTool(run({"records", "prune", "--older-than", "0d"}), "", error, "exit 2");
  EXPECT_EQ(list(), line(id));
  ASSERT_EQ(chmod(claims.c_str(), 0700), 0);
  EXPECT_EQ(withoutTimes(run({"records", "prune", id}).output), "removed " + line(id));
  EXPECT_TRUE(std::filesystem::is_empty(claims));
}

// Then no claim can be written either.
TEST_F(StoredRecords, AreRemovedFromAFullDisk) {
  REQUIRE_ROOT();
  REQUIRE_MOUNTS();
  const std::string disk = folder_.makeFolder("disk");
  const std::string command =
      folder_.write("fill.sh", "cd " + folder_.path() + " && " + ownTool() +
                                   " run shot.xml --quiet >run.out 2>&1\n"
                                   "head -c 1000000 /dev/zero >disk/rest 2>/dev/null\n" +
                                   ownTool() + " records prune --older-than 0d >prune.out 2>&1\n" +
                                   ownTool() + " records list\n");
  ProcessOptions options;
  options.arguments = {"/bin/sh", command};
  options.environment = {{"PATH", "/usr/bin:/bin"}, {"XDG_STATE_HOME", disk}};
  options.prepare = [&] {
    if (!enterOwnMounts() || mount("none", disk.c_str(), "tmpfs", 0, "size=64k,mode=0777") != 0 ||
        setgid(otherId) != 0 || setuid(otherId) != 0) {
      _exit(95);
    }
  };
  expectTool(runProcess(options), "", "", "exit 0");
  EXPECT_TRUE(readFile(folder_.file("prune.out")).starts_with("removed "));
}

TEST_F(StoredRecords, ThatAreDamagedMustBeTheCallersToo) {
  runBatch();
  const std::string id = "20200101-000000-0000";
  const std::string record = writeDamaged(id);
  const auto expectRefusal = [&](const std::string& reason) {
    expectTool(run({"records", "prune", id}), "",
               "runlet-job: records: " + id + ": " + reason + "\n", "exit 2");
    EXPECT_NE(modeOf(record), -1);
  };
  ASSERT_EQ(chmod(record.c_str(), 0646), 0);
  expectRefusal("others may write to the record");
  REQUIRE_ROOT();
  for (const mode_t mode : {mode_t{0644}, mode_t{0600}}) {
    ASSERT_EQ(chmod(record.c_str(), mode), 0);
    ASSERT_EQ(chown(record.c_str(), 62001, 62001), 0);
    expectRefusal("the record belongs to user 62001");
  }
}

TEST_F(StoredRecords, ThatAreDamagedStayWhileTheirBatchIsClaimed) {
  const std::string id = runBatch();
  const std::string state = folder_.file("state/runlet-job");
  const std::string record = state + "/" + id + ".jsonl";
  folder_.write("state/runlet-job/" + id + ".jsonl", readFile(record) + "{\n{\n{\n");
  const std::string path = claimElsewhere(id);
  expectTool(run({"records", "prune", id}), "",
             "runlet-job: records: " + id +
                 ": process 7 on far-away is running it; if it has ended, remove " + path + "\n",
             "exit 2");
  EXPECT_NE(modeOf(record), -1);
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_TRUE(
      run({"records", "prune", id}).output.starts_with("removed " + id + ", but no logs: "));
  EXPECT_EQ(modeOf(record), -1);
}

// After its run was killed, together with the process that would have ended them.
TEST_F(StoredRecords, OfBatchesWithTasksThatLiveOnStay) {
  const std::string id = runBatch();
  const std::string record = folder_.file("state/runlet-job/" + id + ".jsonl");
  std::string text = readFile(record);
  text.resize(text.rfind("{\"event\":\"end\""));
  const runlet_tool::ProcessName own = runlet_tool::ownProcess();
  const std::string process =
      "\"pid\":" + std::to_string(own.process) + ",\"pidStart\":" + std::to_string(own.start) + "}";
  const std::size_t last = text.rfind("\"pid\":");
  text.replace(last, text.find('}', last) + 1 - last, process);
  const int file = open(record.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(file);
  const std::string state = "killed, but 1 task is still running";
  expectTool(run({"records", "prune", id}), "", "runlet-job: records: " + id + ": " + state + "\n",
             "exit 2");
  const std::string report = run({"report", id}).output;
  EXPECT_NE(report.find("\nstate      " + state + "\n"), std::string::npos) << report;
  EXPECT_NE(report.find("\n2 tasks: 1 succeeded, 1 running (2)\n"), std::string::npos) << report;
}

// If nobody claims it, the caller has said that it is not running there any more.
TEST_F(StoredRecords, OfOtherMachinesAreRemovedIfNobodyClaimsThem) {
  const std::string id = runBatch();
  const std::string record = folder_.file("state/runlet-job/" + id + ".jsonl");
  std::string text = readFile(record);
  text.resize(text.rfind("{\"event\":\"stop\""));
  const std::size_t host = text.find("\"host\":\"") + 8;
  text.insert(host, "far-away-");
  const int file = open(record.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(file);
  EXPECT_TRUE(withoutTimes(run({"records", "prune", id}).output)
                  .starts_with("removed " + id + "  running on far-away-"));
  EXPECT_EQ(list(), "");
}

TEST_F(StoredRecords, NeedAPlace) {
  const std::string job = folder_.file("shot.xml");
  const ProcessResult elsewhere =
      run({"run", job, "--quiet", "--record", folder_.file("record")}, "/proc");
  EXPECT_EQ(withoutBatchLine(elsewhere.error),
            "runlet-job: run: cannot find out whether the job is running already: "
            "/proc/runlet-job: No such file or directory\n");
  EXPECT_EQ(describeStatus(elsewhere.waitStatus), "exit 1");
  EXPECT_EQ(modeOf(folder_.file("record")), 0600);
  expectTool(run({"run", job}, "/proc"), "",
             "runlet-job: run: no folder for records: /proc/runlet-job: No such file or directory; "
             "--record FILE creates one elsewhere\n",
             "exit 2");
}

// Its tasks may be running: whoever can write to its folder may have removed or exchanged it.
TEST_F(StoredRecords, OfKilledRunsMustBeReadable) {
  const std::string id = runBatch();
  const std::string job = folder_.file("shot.xml");
  const std::string record = folder_.file("elsewhere.jsonl");
  const std::string claim = claimOfEnded(job, record);
  const auto expectRefusal = [&](const std::string& reason) {
    expectTool(run({"run", job}), "",
               "runlet-job: run: " + job + ": its run was killed, and its record " + record +
                   " cannot be used: " + reason +
                   "; once no task of that batch is running, remove " + claim + "\n",
               "exit 2");
    EXPECT_NE(modeOf(claim), -1);
  };
  expectRefusal("No such file or directory");
  folder_.write("elsewhere.jsonl", "{}\n");
  ASSERT_EQ(chown(record.c_str(), user(), user()), 0);
  expectRefusal("not a record of runlet-job");
  folder_.write("elsewhere.jsonl", readFile(folder_.file("state/runlet-job/" + id + ".jsonl")));
  ASSERT_EQ(chmod(record.c_str(), 0622), 0);
  expectRefusal("others may write to the record");
  ASSERT_EQ(truncate(record.c_str(), 10), 0);
  expectRefusal("not a record of runlet-job");
  ASSERT_EQ(unlink(claim.c_str()), 0);
  EXPECT_NE(runBatch(), "");
}

// Or without a line, when nothing had run.
TEST_F(StoredRecords, OfKilledRunsMayHaveBeenRemoved) {
  runBatch();
  const std::string id = "20200101-000000-0000";
  const std::string record = folder_.file("state/runlet-job/" + id + ".jsonl");
  for (const bool isThere : {false, true}) {
    const std::string claim = claimOfEnded(folder_.file("shot.xml"), record);
    if (isThere) std::filesystem::resize_file(writeDamaged(id), 1);
    const std::string claimOfBatch = claimOfEnded(id, record);
    EXPECT_NE(runBatch(), "");
    EXPECT_EQ(modeOf(claim), -1);
    EXPECT_EQ(modeOf(claimOfBatch), -1);
  }
}

TEST_F(StoredRecords, LeaveNoClaimsOfKilledRuns) {
  const std::string first = runBatch();
  const std::string state = folder_.file("state/runlet-job/");
  claimOfEnded(folder_.file("shot.xml"), state + first + ".jsonl");
  claimOfEnded(first, state + first + ".jsonl");
  const std::string second = runBatch();
  EXPECT_TRUE(std::filesystem::is_empty(state + "claims"));
  const std::string claim = claimOfEnded(second, state + second + ".jsonl");
  run({"records", "prune", second, "--dry-run"});
  EXPECT_NE(modeOf(claim), -1);
  EXPECT_EQ(withoutTimes(run({"records", "prune", second}).output), "removed " + line(second));
  EXPECT_TRUE(std::filesystem::is_empty(state + "claims"));
}

// Two batches may begin at the same moment.
TEST_F(StoredRecords, HaveDifferentIds) {
  ASSERT_TRUE(std::filesystem::copy_file(faultsPath, folder_.file("faults.so")));
  const std::string first = batchOf(run({"run", folder_.file("shot.xml")}, nullptr, true).error);
  const ProcessResult second = run({"run", folder_.file("shot.xml")}, nullptr, true);
  EXPECT_NE(batchOf(second.error), "") << second.error;
  EXPECT_EQ(list(), line(first) + line(batchOf(second.error)));
}

// The last record of the same job.
TEST_F(StoredRecords, AreFoundForTheJob) {
  const std::string id = runBatch();
  std::filesystem::copy_file(folder_.file("shot.xml"), folder_.file("other.xml"));
  ASSERT_EQ(chmod(folder_.file("other.xml").c_str(), 0644), 0);
  const std::string other = batchOf(run({"run", folder_.file("other.xml")}).error);
  EXPECT_EQ(batchOf(run({"run", folder_.file("shot.xml"), "--resume"}).error), id);
  EXPECT_EQ(batchOf(run({"run", "--resume"}).error), other);
  EXPECT_EQ(batchOf(run({"run", "--resume", id}).error), id);
  // The job that was run last counts, not the one of the first session.
  ASSERT_EQ(rename(folder_.file("shot.xml").c_str(), folder_.file("new.xml").c_str()), 0);
  EXPECT_EQ(batchOf(run({"run", folder_.file("new.xml"), "--resume", id}).error), id);
  EXPECT_EQ(batchOf(run({"run", folder_.file("new.xml"), "--resume"}).error), id);
  ASSERT_EQ(rename(folder_.file("new.xml").c_str(), folder_.file("shot.xml").c_str()), 0);
  run({"records", "prune", "--older-than", "0d"});
  expectTool(run({"run", folder_.file("shot.xml"), "--resume"}), "",
             "runlet-job: run: --resume: there is no record of " + folder_.file("shot.xml") +
                 " in " + folder_.file("state") + "/runlet-job\n",
             "exit 2");
}

// As after a power failure: nothing is known of its batch.
TEST_F(StoredRecords, AreNotTheLastOnesIfTheyAreEmpty) {
  const std::string id = runBatch();
  for (const off_t size : {0, 2}) {
    std::filesystem::resize_file(writeDamaged("99990101-000000-0000"), static_cast<unsigned>(size));
    EXPECT_EQ(batchOf(run({"run", "--resume"}).error), id);
    EXPECT_TRUE(run({"report", "last"}).output.starts_with("batch      " + id));
  }
}

TEST_F(StoredRecords, AreNamedOrSelectedByAge) {
  expectTool(run({"records", "prune"}), "",
             "runlet-job: records: prune: name records, or give --older-than\n", "exit 2");
  expectTool(run({"records", "prune", "--older-than", "3"}), "",
             "runlet-job: --older-than: not a number of days such as 30d: 3\n"
             "See: runlet-job records prune --help\n",
             "exit 2");
  folder_.write("state", "");
  expectTool(run({"records", "list"}), "",
             "runlet-job: records: no folder for records: " + folder_.file("state") +
                 "/runlet-job: Not a directory\n",
             "exit 2");
}

}  // namespace
}  // namespace runlet_test
