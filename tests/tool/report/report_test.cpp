// runlet-job report as a whole.

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "adapter_test.h"
#include "batch_record.h"
#include "programs.h"
#include "temp_folder.h"
#include "tool/record/store.h"
#include "tool/report/json.h"
#include "tool/report/overview.h"
#include "tool/report/text.h"
#include "tool/report/trace.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Json = nlohmann::json;
using runlet_tool::Attempt;
using runlet_tool::Ending;
using runlet_tool::Record;
using Strings = std::vector<std::string>;

constexpr char id[] = "20261122-211530-3f2a";

class ReportVerb : public testing::Test {
 protected:
  // A batch of four tasks that was interrupted and resumed.
  ReportVerb() {
    record_.id = id;
    record_.sessions = {finishedSession(0, 40.5, 4), finishedSession(3600, 3650, 4)};
    record_.sessions[0].stopReason = "interrupted by signal 2 (Interrupt)";
    record_.sessions[1].options = {"--resume", "last", "--jobs", "2"};
    // The folder of the log belongs to the user of the tasks.
    record_.sessions[1].uid = static_cast<std::int32_t>(geteuid());
    record_.sessions[1].gid = static_cast<std::int32_t>(getegid());
    Attempt again = endedAttempt(3, 3600, 11, {Ending::failed, 3, ""});
    again.session = 1;
    again.number = 2;
    again.log = folder_.write("harbour-3.log", "frame 3\nno such texture\n");
    Attempt last = endedAttempt(4, 3600, 49.5);
    last.session = 1;
    record_.attempts = {endedAttempt(1, 0.5, 20), endedAttempt(2, 0.5, 30),
                        endedAttempt(3, 21, 19.5, {Ending::interrupted, 0, ""}), again, last};
  }

  ProcessOptions options(const Strings& more) const {
    Strings arguments = {"report"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ProcessOptions started = tool(arguments);
    started.environment.insert(started.environment.end(),
                               {{"TZ", "UTC"}, {"XDG_STATE_HOME", folder_.path()}});
    return started;
  }

  ProcessResult report(const Strings& more) const {
    return runProcess(options(more));
  }

  std::string path() const {
    return folder_.file("record.jsonl");
  }

  TempFolder folder_;
  Record record_;
};

TEST_F(ReportVerb, ShowsTheBatchInATerminal) {
  writeRecord(record_, path());
  expectTool(report({path()}),
             "batch      20261122-211530-3f2a\n"
             "state      finished\n"
             "job        /srv/harbour.xml\n"
             "command    runlet-job run --resume last --jobs 2\n"
             "logs       " +
                 folder_.path() +
                 "\n"
                 "version    1.2.0\n"
                 "began      2026-11-22 21:15:30 UTC\n"
                 "ran for    1 min 31 s\n"
                 "session 1  2026-11-22 21:15:30 UTC, 41 s, ended early (interrupted by signal 2 "
                 "(Interrupt))\n"
                 "session 2  2026-11-22 22:15:30 UTC, 50 s, finished\n"
                 "\n"
                 "4 tasks: 3 succeeded, 1 failed (3)\n"
                 "\n"
                 "Failures\n"
                 "  task 3, attempt 2: failed with exit code 3 after 11 s: /bin/render 3\n"
                 "    log: " +
                 folder_.file("harbour-3.log") +
                 "\n"
                 "      | frame 3\n"
                 "      | no such texture\n"
                 "\n"
                 "Slowest\n"
                 "  task 4: succeeded after 50 s: /bin/render 4\n"
                 "  task 2: succeeded after 30 s: /bin/render 2\n"
                 "  task 1: succeeded after 20 s: /bin/render 1\n"
                 "  task 3: interrupted after 20 s: /bin/render 3\n"
                 "  task 3, attempt 2: failed with exit code 3 after 11 s: /bin/render 3\n"
                 "\n"
                 "Durations of 5 attempts\n"
                 "  min 11 s, median 20 s, 90 % 50 s, 99 % 50 s, max 50 s\n"
                 "  10 s to 20 s  2 ########################################\n"
                 "  20 s to 30 s  1 ####################\n"
                 "  30 s to 40 s  1 ####################\n"
                 "  40 s to 50 s  1 ####################\n"
                 "\n"
                 "Totals\n"
                 "  CPU time               1 min 5 s\n"
                 "  greatest peak memory   49.5 MiB (task 4)\n"
                 "  at a time on average   1.4 of 2\n"
                 "  lost without success   31 s in 2 attempts\n",
             "", "exit 0");
}

TEST_F(ReportVerb, ShowsABatchWithoutAnyAttempt) {
  record_.sessions.resize(1);
  record_.sessions[0].options = {"harbour.xml"};
  record_.attempts.clear();
  writeRecord(record_, path());
  expectTool(report({path()}),
             "batch      20261122-211530-3f2a\n"
             "state      ended early (interrupted by signal 2 (Interrupt))\n"
             "job        /srv/harbour.xml\n"
             "command    runlet-job run harbour.xml\n"
             "version    1.2.0\n"
             "began      2026-11-22 21:15:30 UTC\n"
             "ran for    41 s\n"
             "\n"
             "4 tasks: 4 not started (1-4)\n"
             "\n"
             "Totals\n"
             "  CPU time               0 s\n"
             "  greatest peak memory   0 bytes\n"
             "  at a time on average   0.0 of 2\n"
             "  lost without success   0 s in 0 attempts\n",
             "", "exit 0");
}

// With the process of this test as the one that runs the batch.
TEST_F(ReportVerb, ShowsABatchThatRuns) {
  record_.sessions[1].end.reset();
  record_.sessions[1].process = runlet_tool::ownProcess();
  record_.attempts.back().end.reset();
  writeRecord(record_, path());
  const std::string text = report({path()}).output;
  const std::string state = "state      running on " + record_.sessions[1].process.host +
                            " as process " + std::to_string(getpid()) + "\n";
  EXPECT_NE(text.find("\n" + state), std::string::npos) << text;
  EXPECT_NE(text.find("\n4 tasks: 2 succeeded, 1 failed (3), 1 running (4)\n"), std::string::npos)
      << text;
}

// As an ordinary user: for root it would be a folder in root's home.
TEST_F(ReportVerb, SaysWhichLogsMayBeIncomplete) {
  record_.attempts[0].isDiskFull = record_.attempts[1].isDiskFull = true;
  writeRecord(record_, path());
  const std::string text = "The disk was full: the logs of 2 tasks (1-2) may be incomplete";
  const std::string report = this->report({path()}).output;
  EXPECT_NE(report.find(" succeeded, 1 failed (3)\n" + text + "\n\nFailures\n"), std::string::npos)
      << report;
  EXPECT_NE(
      this->report({path(), "--html", "-"}).output.find("<p class=\"note\">" + text + ".</p>"),
      std::string::npos);
}

// Root must not be made to show a file that the task's user could not read.
TEST_F(ReportVerb, ReadsLogsWithTheRightsOfTheirTasks) {
  REQUIRE_ROOT();
  Attempt& failed = record_.attempts[3];
  const std::string log = "    log: ";
  const auto shown = [&](const std::string& path, unsigned uid, unsigned gid) {
    failed.log = path;
    record_.sessions[1].uid = static_cast<std::int32_t>(uid);
    record_.sessions[1].gid = static_cast<std::int32_t>(gid);
    unlink(this->path().c_str());
    writeRecord(record_, this->path());
    const std::string text = report({this->path()}).output;
    const std::size_t begin = text.find(log + path + "\n");
    return begin == std::string::npos
               ? text
               : text.substr(begin + log.size() + path.size() + 1,
                             text.find("\n\nSlowest") - begin - log.size() - path.size());
  };
  const std::string denied = "      cannot be read: Permission denied\n";
  const std::string logs = folder_.makeFolder("logs");
  const std::string secret = folder_.write("logs/secret", "of root\n", 0600);
  EXPECT_EQ(shown(secret, 0, 0), "      | of root\n");
  EXPECT_EQ(shown(secret, otherId, otherId),
            "      cannot be read: its folder belongs to user 0\n");
  ASSERT_EQ(chown(logs.c_str(), otherId, otherId), 0);
  EXPECT_EQ(shown(secret, otherId, otherId), denied);

  // On the way to the folder there is a link to one that only root can enter.
  folder_.makeFolder("closed", 0700);
  folder_.makeFolder("closed/logs", 0700);
  folder_.write("closed/logs/3.log", "of root\n", 0644);
  std::filesystem::create_directory_symlink("closed", folder_.file("way"));
  EXPECT_EQ(shown(folder_.file("way/logs/3.log"), otherId, otherId), denied);
  EXPECT_EQ(shown(folder_.file("way/logs/3.log"), 0, 0), "      | of root\n");

  // With the task's group, and without root's groups.
  constexpr unsigned group = 62002;
  ASSERT_EQ(chown(secret.c_str(), 0, group), 0);
  ASSERT_EQ(chmod(secret.c_str(), 0640), 0);
  EXPECT_EQ(shown(secret, otherId, group), "      | of root\n");
  EXPECT_EQ(shown(secret, otherId, group + 1), denied);
  ASSERT_EQ(chown(secret.c_str(), 0, 0), 0);
  EXPECT_EQ(shown(secret, otherId, otherId), denied);
}

// Who can write to the folder above can exchange that of the logs.
TEST_F(ReportVerb, ReadsNoLogThroughAFolderOfOthers) {
  const std::string logs = folder_.makeFolder("logs");
  folder_.makeFolder("real");
  folder_.write("real/3.log", "of somebody\n");
  folder_.write("logs/3.log", "of the task\n");
  record_.attempts[3].log = logs + "/3.log";
  writeRecord(record_, path());
  const auto shown = [this] {
    const std::string text = report({path()}).output;
    const std::size_t begin = text.find("logs/3.log\n      ");
    const std::size_t end = text.find("\n\nSlowest");
    return begin < end ? text.substr(begin + 17, end - begin - 17) : text;
  };
  EXPECT_EQ(shown(), "| of the task");
  ASSERT_EQ(chmod(logs.c_str(), 0775), 0);
  EXPECT_EQ(shown(), "cannot be read: others may write to its folder");
  ASSERT_EQ(rename(logs.c_str(), folder_.file("moved").c_str()), 0);
  EXPECT_EQ(shown(), std::string("cannot be read: ") + std::strerror(ENOENT));
  std::filesystem::create_directory_symlink("real", logs);
  EXPECT_EQ(shown(), "cannot be read: its folder is a link");
  REQUIRE_ROOT();
  ASSERT_EQ(unlink(logs.c_str()), 0);
  ASSERT_EQ(rename(folder_.file("real").c_str(), logs.c_str()), 0);
  ASSERT_EQ(chown(logs.c_str(), 62001, 62001), 0);
  EXPECT_EQ(shown(), "cannot be read: its folder belongs to user 62001");
}

// Also if no log is shown.
TEST_F(ReportVerb, SaysWhenOthersMayHaveWrittenTheRecord) {
  record_.attempts.resize(2);  // both succeeded
  writeRecord(record_, path());
  const auto expectCaution = [&](const std::string& caution) {
    const std::string text = report({path()}).output;
    const std::string row = caution.empty() ? "" : "caution    " + caution + "\n";
    EXPECT_TRUE(text.starts_with("batch      " + std::string(id) + "\n" + row + "state ")) << text;
    const std::string page = report({path(), "--html", "-"}).output;
    const std::string note = "<p class=\"note\">Caution: " + caution + ".</p>\n";
    EXPECT_EQ(page.find(note) != std::string::npos, !caution.empty()) << page;
    EXPECT_EQ(page.find("Caution") != std::string::npos, !caution.empty()) << page;
    const Json json = Json::parse(report({path(), "--json"}).output);
    EXPECT_EQ(json.at("caution"), caution.empty() ? Json() : Json(caution));
  };
  expectCaution("");
  ASSERT_EQ(chmod(path().c_str(), 0620), 0);
  expectCaution("others may write to the record: what it says may be wrong");
  REQUIRE_ROOT();
  ASSERT_EQ(chown(path().c_str(), 62001, 0), 0);
  expectCaution("the record belongs to user 62001: what it says may be wrong");
}

// Such a record may name any file as a log.
TEST_F(ReportVerb, ReadsNoLogsOfARecordThatOthersMayHaveWritten) {
  const std::string log = "    log: " + folder_.file("harbour-3.log") + "\n";
  const auto expectNote = [&](const std::string& note) {
    const std::string text = report({path()}).output;
    EXPECT_NE(text.find("\n" + log + "      " + note + "\n\nSlowest\n"), std::string::npos) << text;
    const std::string page = report({path(), "--html", "-"}).output;
    EXPECT_NE(page.find("harbour-3.log</p><p class=\"log\">" + note + "</p></td></tr>"),
              std::string::npos)
        << page;
    EXPECT_EQ((text + page).find("no such texture"), std::string::npos);
  };
  writeRecord(record_, path());
  for (const mode_t mode : {0620U, 0602U, 0666U}) {
    ASSERT_EQ(chmod(path().c_str(), mode), 0);
    expectNote("not read: others may write to the record");
  }
  REQUIRE_ROOT();
  ASSERT_EQ(chown(path().c_str(), 62001, 0), 0);
  expectNote("not read: the record belongs to user 62001");
  ASSERT_EQ(chmod(path().c_str(), 0600), 0);
  expectNote("not read: the record belongs to user 62001");
}

TEST_F(ReportVerb, FindsRecordsByTheirIds) {
  const std::string record = folder_.makeFolder("runlet-job") + "/" + id + ".jsonl";
  writeRecord(record_, record);
  ASSERT_EQ(chmod(record.c_str(), 0644), 0);
  for (const std::string& own : {record, folder_.file("runlet-job")}) {
    if (geteuid() == 0 && chown(own.c_str(), otherId, otherId) != 0) FAIL() << own;
  }
  const std::string program = folder_.file("tool");
  std::filesystem::copy_file(toolPath, program);
  const auto asUser = [&](const Strings& words) {
    ProcessOptions started = options(words);
    started.program = program;
    started.prepare = [] {
      if (geteuid() != 0) return;
      if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(otherId) != 0) _exit(97);
    };
    return runProcess(started);
  };
  const ProcessResult result = asUser({id});
  EXPECT_EQ(result.error, "");
  EXPECT_TRUE(result.output.starts_with("batch      20261122-211530-3f2a\n")) << result.output;
  EXPECT_EQ(asUser({"last"}).output, result.output);
  expectTool(
      asUser({"20261122-211530-0000"}), "",
      "runlet-job: report: no record 20261122-211530-0000 in " + folder_.file("runlet-job") + "\n",
      "exit 2");
}

TEST_F(ReportVerb, SaysWhichRecordCannotBeRead) {
  writeRecord(record_, path());
  const std::string whole = readFile(path());
  const std::string version = folder_.write("version.jsonl", R"({"event":"session","version":2})"
                                                             "\n");
  const std::string damaged = folder_.write("damaged.jsonl", whole + "[]\n");
  const std::string other = folder_.write("a\033.jsonl", "x\n");
  const struct {
    Strings words;
    std::string error;
  } rows[] = {
      {{folder_.file("none.jsonl")}, folder_.file("none.jsonl") + ": No such file or directory"},
      {{folder_.path() + "/"}, folder_.path() + "/: not a regular file"},
      {{version}, version + ": a record of version 2, and this program reads version 1"},
      {{damaged}, damaged + ": damaged in line 17"},
      {{other}, "$'" + folder_.path() + "/a\\033.jsonl': not a record of runlet-job"},
  };
  const std::string page = folder_.file("page");
  for (const auto& row : rows) {
    Strings words = row.words;
    words.insert(words.end(), {"--trace", page});
    expectTool(report(words), "", "runlet-job: report: " + row.error + "\n", "exit 2");
    EXPECT_NE(access(page.c_str(), F_OK), 0);
  }
}

TEST_F(ReportVerb, RefusesOutputsThatCannotBeWritten) {
  writeRecord(record_, path());
  expectTool(report({path(), "--trace", "/nowhere/x"}), "",
             "runlet-job: report: --trace /nowhere/x: No such file or directory\n", "exit 2");
  const Strings conflicts[] = {
      {"--trace", "-", "--json"}, {"--html", "-", "--json"}, {"--html", "-", "--trace", "-"}};
  for (const Strings& conflict : conflicts) {
    Strings words = {path()};
    words.insert(words.end(), conflict.begin(), conflict.end());
    expectTool(report(words), "", "runlet-job: report: only one report can go to standard output\n",
               "exit 2");
  }
  ProcessOptions full = options({path()});
  full.prepare = [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); };
  expectTool(runProcess(full), "",
             "runlet-job: cannot write to standard output: No space left on device\n", "exit 2");
}

TEST_F(ReportVerb, WritesATraceOfSlots) {
  writeRecord(record_, path());
  const ProcessResult result = report({path(), "--trace", "-"});
  EXPECT_EQ(result.error, "");
  const Json trace = Json::parse(result.output);
  EXPECT_EQ(trace["displayTimeUnit"], "ms");
  std::string names;
  for (const Json& event : trace["traceEvents"]) {
    if (event["ph"] == "M") {
      names += event["name"].get<std::string>() + " " + event["tid"].dump() + ": " +
               event["args"]["name"].get<std::string>() + "\n";
    } else if (event["ph"] == "X") {
      names += event["tid"].dump() + " " + event["ts"].dump() + " " + event["dur"].dump() + " " +
               event["cat"].get<std::string>() + " " + event["name"].get<std::string>() + "\n";
    } else {
      EXPECT_EQ(event["ph"], "i");
      names += "at " + event["ts"].dump() + ": " + event["name"].get<std::string>() + "\n";
    }
    EXPECT_EQ(event["pid"], 1);
  }
  EXPECT_EQ(names,
            "process_name 0: /srv/harbour.xml\n"
            "thread_name 1: slot 1\n"
            "thread_name 2: slot 2\n"
            "at 3600000000: session 2\n"
            "1 500000 20000000 succeeded task 1\n"
            "2 500000 30000000 succeeded task 2\n"
            "1 21000000 19500000 interrupted task 3\n"
            "1 3600000000 11000000 failed task 3, attempt 2\n"
            "2 3600000000 49500000 succeeded task 4\n");
  EXPECT_EQ(trace["traceEvents"][7]["args"], (Json{{"task", 3},
                                                   {"attempt", 2},
                                                   {"session", 2},
                                                   {"end", "failed with exit code 3"},
                                                   {"cpu", 5.5},
                                                   {"peakMemory", 11 << 20},
                                                   {"command", "/bin/render 3"},
                                                   {"log", folder_.file("harbour-3.log")}}));
  const std::string file = folder_.file("trace.json");
  expectTool(report({path(), "--trace", file}), "", "", "exit 0");
  EXPECT_EQ(readFile(file), result.output);
}

// Each of them in a file of its own, and nothing else; an existing file is replaced.
TEST_F(ReportVerb, WritesSeveralReportsAtOnce) {
  writeRecord(record_, path());
  const std::string page = folder_.write("page.html", "old");
  const std::string trace = folder_.file("trace.json");
  expectTool(report({path(), "--html", page, "--trace", trace}), "", "", "exit 0");
  EXPECT_EQ(readFile(trace), report({path(), "--trace", "-"}).output);
  const std::string text = readFile(page);
  const std::string start = "<!DOCTYPE html>\n";
  EXPECT_TRUE(text.starts_with(start)) << text;
  EXPECT_NE(text.find("<pre>frame 3\nno such texture\n</pre>"), std::string::npos) << text;
  const std::string json = report({path(), "--json"}).output;
  EXPECT_EQ(report({path(), "--json", "--html", page}).output, json);
  EXPECT_TRUE(report({path(), "--html", "-"}).output.starts_with(start));
}

TEST_F(ReportVerb, WritesJson) {
  record_.sessions[1].uid = 1000;
  record_.sessions[1].gid = 100;
  record_.attempts.erase(record_.attempts.begin(), record_.attempts.end() - 2);
  record_.attempts[0].words.push_back("\xff");
  record_.attempts[0].isDiskFull = true;
  record_.attempts[1].end.reset();
  writeRecord(record_, path());
  const ProcessResult result = report({path(), "--json"});
  EXPECT_EQ(result.error, "");
  std::string expected =
      R"x({"format":"runlet-job report","version":1,"id":"20261122-211530-3f2a",)x"
      R"x("caution":null,"state":"finished", "sessions": [
 {"begin":1795382130.0,"end":1795382170.5,"seconds":40.5,)x"
      R"x("stopReason":"interrupted by signal 2 (Interrupt)","tool":"1.2.0","verb":"run",)x"
      R"x("options":["harbour.xml","--jobs","2"],"job":"/srv/harbour.xml","application":"","expect":[],"folder":"/srv",)x"
      R"x("uid":1000,"gid":100,"host":"farm04","pid":4711,"atATime":2,"timeLimit":0.0,)x"
      R"x("bytes":false},
 {"begin":1795385730.0,"end":1795385780.0,"seconds":50.0,"stopReason":null,"tool":"1.2.0",)x"
      R"x("verb":"run","options":["--resume","last","--jobs","2"],"job":"/srv/harbour.xml","application":"","expect":[],)x"
      R"x("folder":"/srv","uid":1000,"gid":100,"host":"farm04","pid":4711,"atATime":2,)x"
      R"x("timeLimit":0.0,"bytes":false}
], "attempts": [
 {"task":3,"attempt":2,"session":2,"countsFor":3,"argv":["/bin/render","3","\u00ff"],"log":"LOG",)x"
      R"x("begin":1795385730.0,"end":1795385741.0,"result":"failed","code":3,"signal":null,)x"
      R"x("reason":null,"wall":11.0,"cpu":5.5,"peakMemory":11534336,"diskFull":true,"slot":1,)x"
      R"x("bytes":true},
 {"task":4,"attempt":1,"session":2,"countsFor":4,"argv":["/bin/render","4"],"log":null,)x"
      R"x("begin":1795385730.0,"end":null,"result":"cut-off","code":null,"signal":null,)x"
      R"x("reason":null,"wall":50.0,"cpu":0.0,"peakMemory":0,"diskFull":false,"slot":2,"bytes":false}
], "totals": {"tasks":4,"results":{"succeeded":0,"failed":1,"killed":0,"timed-out":0,)x"
      R"x("interrupted":0,"not-started":2,"other":0,"cut-off":1,"running":0,"waiting":0},)x"
      R"x("attempts":2,"seconds":90.5,"wall":61.0,"cpu":5.5,"peakMemory":11534336,)x"
      R"x("atATime":0.6740331491712708,"lostAttempts":2,"lostSeconds":61.0,)x"
      R"x("durations":{"min":11.0,"median":11.0,"p90":11.0,"p99":11.0,"max":11.0}}}
)x";
  expected.replace(expected.find("LOG"), 3, folder_.file("harbour-3.log"));
  EXPECT_EQ(result.output, expected);
  EXPECT_TRUE(Json::accept(result.output));
}

// --- Without the program

// `text` has nothing that acts on a terminal.
void expectPrintable(const std::string& text) {
  for (const char c : text) EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << int{c};
}

TEST(HostileRecord, IsShownAsEscapes) {
  const std::string hostile =
      "a\033[2J\x07\xff\xe2\x80\xae\xc2\x9b\x7f\r\n" + std::string(99999, 'y');
  Record record;
  record.id = id;
  record.sessions = {finishedSession(0, 1, 2), finishedSession(2, 4, 2)};
  for (runlet_tool::Session& session : record.sessions) {
    session.options = {hostile};
    session.stopReason = session.toolVersion = session.verb = session.job = hostile;
    session.folder = session.process.host = hostile;
  }
  record.attempts = {endedAttempt(1, 0, 1, {Ending::other, 0, hostile}), endedAttempt(2, 0, 1)};
  for (Attempt& attempt : record.attempts) {
    attempt.words = {hostile, hostile};
    attempt.log = hostile;
  }
  // JSON allows these as they are.
  const std::string bare = "\x7f\xe2\x80\xae\xc2\x9b";
  runlet_tool::Session& first = record.sessions.front();
  first.options = {bare};
  first.stopReason = first.toolVersion = first.verb = first.job = bare;
  first.folder = first.process.host = bare;
  record.attempts[1].words = {bare};
  record.attempts[1].log = bare;
  for (const bool isRunning : {false, true}) {
    if (isRunning) record.sessions.back().end.reset();
    const runlet_tool::Overview overview = overviewOf(record, isRunning, batchBegin + 9, 20);
    const std::string text = reportText(overview, false);
    expectPrintable(text);
    EXPECT_LT(text.size(), 5000U);
    for (const std::string& json : {reportJson(overview), traceJson(overview)}) {
      EXPECT_TRUE(Json::accept(json));
      expectPrintable(json);
    }
  }
}

// The largest batch of each kind of list is still a few screens.
TEST(LargeRecord, IsShownOnAFewScreens) {
  constexpr std::int32_t count = 100'000;
  Record record;
  record.id = id;
  for (int i = 0; i < 20; ++i)
    record.sessions.push_back(finishedSession(i * 100, i * 100 + 99, count));
  for (std::int32_t task = 1; task < count; ++task) {
    const bool isFine = task % 2 == 0;
    record.attempts.push_back(endedAttempt(task, task % 90, 0.001 * task,
                                           isFine ? runlet_tool::TaskEnd{Ending::succeeded, 0, ""}
                                                  : runlet_tool::TaskEnd{Ending::failed, 1, ""}));
    record.attempts.back().log = "/nowhere";
  }
  const runlet_tool::Overview overview = overviewOf(record, false, batchBegin, 20);
  const std::string text = reportText(overview, false);
  EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 60) << text;
  EXPECT_NE(text.find("\n  and 49992 more\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\nsessions   16 earlier sessions not shown\nsession 17 "), std::string::npos)
      << text;
}

}  // namespace
}  // namespace runlet_test
