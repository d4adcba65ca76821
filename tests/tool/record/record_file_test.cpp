// Writing a record and reading it again, and reading what is damaged.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "temp_folder.h"
#include "tool/record/read.h"
#include "tool/record/write.h"

namespace runlet_tool {
namespace {

using runlet_test::readFile;
using runlet_test::TempFolder;

constexpr char id[] = "20261122-211530-3f2a";

Session someSession() {
  Session session;
  session.begin = 1700000000.25;
  session.toolVersion = "1.2.0";
  session.verb = "run";
  session.options = {"job.xml", "--jobs", "2"};
  session.job = "/jobs/job.xml";
  session.appPath = "/opt/bin/tool";
  session.digest = std::string(64, 'a');
  session.folder = "/jobs";
  session.uid = 1000;
  session.gid = -5;
  session.process = {"node", "boot", 7, 4242, 99};
  session.atATime = 2;
  session.expected = {"out_%tn.png"};
  session.timeLimit = 90;
  session.isWhole = false;
  session.tasks = {2, 3, 9};
  session.identities.resize(3);
  session.identities[1].fill(0xab);
  return session;
}

Attempt someAttempt(std::int32_t task) {
  Attempt attempt;
  attempt.task = task;
  attempt.words = {"/bin/true", "a b", ""};
  attempt.log = "/jobs/2.log";
  attempt.begin = 1700000001;
  attempt.process = 4300;
  attempt.processStart = 123;
  return attempt;
}

void end(Attempt* attempt, const TaskEnd& result) {
  attempt->end = 1700000002.5;
  attempt->result = result;
  attempt->wall = 1.5;
  attempt->cpu = 0.25;
  attempt->peakMemory = 1 << 20;
}

class RecordFile : public testing::Test {
 protected:
  void create(Mirror mirror = {}) {
    writer_ = RecordWriter(id, std::move(mirror));
    OutputPlace place;
    ASSERT_EQ(findOutputPlace(path(), &place), "");
    ASSERT_EQ(writer_.create(place), 0);
  }

  std::string path() const {
    return folder_.file("record.jsonl");
  }

  std::string read() {
    record_ = {};
    return readRecord(path(), &record_);
  }

  TempFolder folder_;
  RecordWriter writer_{id};
  Record record_;
};

void expectEqual(const Attempt& left, const Attempt& right) {
  EXPECT_EQ(left.task, right.task);
  EXPECT_EQ(left.number, right.number);
  EXPECT_EQ(left.session, right.session);
  EXPECT_EQ(left.words, right.words);
  EXPECT_EQ(left.log, right.log);
  EXPECT_EQ(left.begin, right.begin);
  EXPECT_EQ(left.process, right.process);
  EXPECT_EQ(left.processStart, right.processStart);
  EXPECT_EQ(left.end, right.end);
  EXPECT_EQ(left.result, right.result);
  EXPECT_EQ(left.wall, right.wall);
  EXPECT_EQ(left.cpu, right.cpu);
  EXPECT_EQ(left.peakMemory, right.peakMemory);
}

void expectEqual(const Session& left, const Session& right) {
  EXPECT_EQ(left.begin, right.begin);
  EXPECT_EQ(left.toolVersion, right.toolVersion);
  EXPECT_EQ(left.verb, right.verb);
  EXPECT_EQ(left.options, right.options);
  EXPECT_EQ(left.job, right.job);
  EXPECT_EQ(left.appPath, right.appPath);
  EXPECT_EQ(left.digest, right.digest);
  EXPECT_EQ(left.folder, right.folder);
  EXPECT_EQ(left.uid, right.uid);
  EXPECT_EQ(left.gid, right.gid);
  EXPECT_EQ(left.process, right.process);
  EXPECT_EQ(left.atATime, right.atATime);
  EXPECT_EQ(left.expected, right.expected);
  EXPECT_EQ(left.timeLimit, right.timeLimit);
  EXPECT_EQ(left.isWhole, right.isWhole);
  EXPECT_EQ(left.tasks, right.tasks);
  EXPECT_EQ(left.identities, right.identities);
  EXPECT_EQ(left.end, right.end);
  EXPECT_EQ(left.stopReason, right.stopReason);
}

TEST_F(RecordFile, IsReadAsItWasWritten) {
  create();
  Session session = someSession();
  ASSERT_EQ(writer_.beginSession(session), 0);
  const TaskEnd ends[] = {{Ending::succeeded, 0, ""},
                          {Ending::failed, 3, ""},
                          {Ending::killed, 9, ""},
                          {Ending::timedOut, 0, ""},
                          {Ending::interrupted, 0, ""},
                          {Ending::other, 0, "end unknown"},
                          {Ending::failed, 0, "no file a.png at its end"}};
  std::vector<Attempt> attempts;
  for (const TaskEnd& result : ends) {
    Attempt attempt = someAttempt(3);
    attempt.number = static_cast<std::int32_t>(attempts.size() + 1);
    ASSERT_EQ(writer_.beginAttempt(attempt), 0);
    end(&attempt, result);
    ASSERT_EQ(writer_.endAttempt(attempt), 0);
    attempts.push_back(attempt);
  }
  attempts.push_back(someAttempt(2));  // is running
  ASSERT_EQ(writer_.beginAttempt(attempts.back()), 0);
  session.end = 1700000009;
  session.stopReason = "interrupted";
  ASSERT_EQ(writer_.endSession(session), 0);

  ASSERT_EQ(read(), "");
  EXPECT_EQ(record_.id, id);
  ASSERT_EQ(record_.sessions.size(), 1);
  expectEqual(record_.sessions[0], session);
  ASSERT_EQ(record_.attempts.size(), attempts.size());
  for (std::size_t i = 0; i < attempts.size(); ++i) {
    SCOPED_TRACE(i);
    expectEqual(record_.attempts[i], attempts[i]);
  }
}

// An attempt of a task that could not be started has one event, which has its end.
TEST_F(RecordFile, HasTasksWithoutAProcess) {
  create();
  ASSERT_EQ(writer_.beginSession(someSession()), 0);
  Attempt attempt;
  attempt.task = 9;
  attempt.end = 1700000002.5;
  attempt.result = {Ending::other, 0, "cannot open log (No space left on device)"};
  ASSERT_EQ(writer_.endAttempt(attempt), 0);
  ASSERT_EQ(read(), "");
  attempt.begin = *attempt.end;
  ASSERT_EQ(record_.attempts.size(), 1);
  expectEqual(record_.attempts[0], attempt);
}

TEST_F(RecordFile, KeepsTextsOfAnyBytes) {
  create();
  Session session = someSession();
  session.options = {"\xff\xe9", "\xc3\xa9", "\n\x01\""};
  session.stopReason = "\x80";
  session.end = 1700000009;
  Attempt attempt = someAttempt(2);
  attempt.words = {"\xc3", "\xc3\xa9"};
  ASSERT_EQ(writer_.beginSession(session), 0);
  ASSERT_EQ(writer_.beginAttempt(attempt), 0);
  end(&attempt, {Ending::other, 0, "\xfe"});
  ASSERT_EQ(writer_.endAttempt(attempt), 0);
  ASSERT_EQ(writer_.endSession(session), 0);
  ASSERT_EQ(read(), "");
  expectEqual(record_.sessions.at(0), session);
  expectEqual(record_.attempts.at(0), attempt);
}

// A line of the plan has a thousand tasks.
TEST_F(RecordFile, HasAnyNumberOfTasks) {
  for (const std::size_t count : {0U, 1U, 999U, 1000U, 1001U, 2500U}) {
    SCOPED_TRACE(count);
    ASSERT_EQ(unlink(path().c_str()) == 0 || errno == ENOENT, true);
    create();
    Session session = someSession();
    session.tasks.resize(count);
    session.identities.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
      session.tasks[i] = static_cast<std::int32_t>(3 * i + 1);
      session.identities[i][5] = static_cast<unsigned char>(i);
    }
    ASSERT_EQ(writer_.beginSession(session), 0);
    ASSERT_EQ(read(), "");
    expectEqual(record_.sessions.at(0), session);
  }
}

TEST_F(RecordFile, IsForItsWriterAlone) {
  create();
  EXPECT_EQ(runlet_test::modeOf(path()), 0600);
  OutputPlace place;
  ASSERT_EQ(findOutputPlace(path(), &place), "");
  EXPECT_EQ(RecordWriter(id).create(place), EEXIST);
  ASSERT_EQ(symlink("/nowhere", folder_.file("link").c_str()), 0);
  EXPECT_EQ(RecordWriter(id).append(folder_.file("link"), {}), ELOOP);
  EXPECT_EQ(RecordWriter(id).append(folder_.file("none"), {}), ENOENT);
  EXPECT_EQ(RecordWriter(id).append(path(), {}), ESTALE);  // another file than was read
}

// What is in place of a record is not even opened: opening this one would fail with another reason.
TEST_F(RecordFile, IsLookedAtFirst) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  folder_.file("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  const OwnDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(bind(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(symlink("socket", folder_.file("link").c_str()), 0);
  EXPECT_EQ(readRecord(folder_.file("link"), &record_), "not a regular file");
  EXPECT_EQ(jobOfRecord(folder_.file("link")), "");
  EXPECT_EQ(RecordWriter(id).append(folder_.file("socket"), {}), ESTALE);
}

TEST_F(RecordFile, GoesToItsMirrorToo) {
  std::string copy;
  create([&copy](std::string_view line) { copy += line; });
  ASSERT_EQ(writer_.beginSession(someSession()), 0);
  ASSERT_EQ(writer_.beginAttempt(someAttempt(2)), 0);
  EXPECT_EQ(copy, readFile(path()));
}

TEST_F(RecordFile, ReportsWhatCannotBeWritten) {
  EXPECT_EQ(RecordWriter(id).beginAttempt(someAttempt(2)), EBADF);
  EXPECT_EQ(RecordWriter(id).beginSession(someSession()), EBADF);
}

// Nothing may be glued to half a line.
TEST_F(RecordFile, HasNoPartOfALineThatCouldNotBeWritten) {
  create();
  ASSERT_EQ(writer_.beginSession(someSession()), 0);
  const std::string before = readFile(path());
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit whole{};
  getrlimit(RLIMIT_FSIZE, &whole);
  const rlimit tight{before.size() + 10, whole.rlim_max};
  setrlimit(RLIMIT_FSIZE, &tight);
  const int error = writer_.beginAttempt(someAttempt(2));
  setrlimit(RLIMIT_FSIZE, &whole);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(error, EFBIG);
  EXPECT_EQ(readFile(path()), before);
  EXPECT_EQ(writer_.beginAttempt(someAttempt(3)), 0);
  EXPECT_EQ(read(), "");
}

// Each try on a full disk would take more of it.
TEST_F(RecordFile, HasNoPartOfASessionThatCouldNotBeBegun) {
  create();
  ASSERT_EQ(writer_.beginSession(someSession()), 0);
  const std::string before = readFile(path());
  const std::size_t session = before.find('\n') + 1;
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit whole{};
  getrlimit(RLIMIT_FSIZE, &whole);
  const rlimit tight{before.size() + session + 10, whole.rlim_max};
  setrlimit(RLIMIT_FSIZE, &tight);
  const int error = writer_.beginSession(someSession());
  setrlimit(RLIMIT_FSIZE, &whole);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(error, EFBIG);
  EXPECT_EQ(readFile(path()), before);
}

// A writer that is killed in the middle of a line leaves it incomplete, and the next one begins a
// line of its own.
TEST_F(RecordFile, CanBeContinuedAfterAnIncompleteLine) {
  create();
  ASSERT_EQ(writer_.beginSession(someSession()), 0);
  const std::string whole = readFile(path());
  ASSERT_EQ(writer_.beginAttempt(someAttempt(2)), 0);
  const std::size_t size = readFile(path()).size();
  for (std::size_t cut = whole.size(); cut <= size; ++cut) {
    SCOPED_TRACE(cut);
    ASSERT_EQ(truncate(path().c_str(), static_cast<off_t>(cut)), 0);
    ASSERT_EQ(read(), "");
    EXPECT_EQ(record_.attempts.size(), cut == size ? 1 : 0);
    RecordWriter second(id);
    ASSERT_EQ(second.append(path(), record_.file), 0);
    ASSERT_EQ(second.beginSession(someSession()), 0);
    // Without its newline the line is complete, and counts as soon as the next one begins.
    const bool isThere = cut + 1 >= size;
    Attempt again = someAttempt(2);
    again.number = isThere ? 2 : 1;
    ASSERT_EQ(second.beginAttempt(again), 0);
    ASSERT_EQ(read(), "");
    EXPECT_EQ(record_.sessions.size(), 2);
    ASSERT_EQ(record_.attempts.size(), isThere ? 2 : 1);
    EXPECT_EQ(record_.attempts.back().session, 1);
    ASSERT_EQ(truncate(path().c_str(), static_cast<off_t>(whole.size())), 0);
    ASSERT_EQ(writer_.beginAttempt(someAttempt(2)), 0);
  }
}

class DamagedRecord : public RecordFile {
 protected:
  // The lines of a sound record: session, plan, start, end, stop.
  std::string soundText() {
    create();
    Session session = someSession();
    Attempt attempt = someAttempt(2);
    writer_.beginSession(session);
    writer_.beginAttempt(attempt);
    end(&attempt, {Ending::failed, 3, ""});
    writer_.endAttempt(attempt);
    session.end = 1700000009;
    writer_.endSession(session);
    return readFile(path());
  }

  std::string readWith(const std::string& text) {
    folder_.write("record.jsonl", text);
    return read();
  }
};

TEST_F(DamagedRecord, IsRefusedWithItsLine) {
  const std::string sound = soundText();
  struct Row {
    const char* from;
    const char* to;
    const char* complaint;
  };
  const Row rows[] = {
      {"{\"event\":\"session\"", "{\"event\":\"other\"", "not a record of runlet-job"},
      {"\"version\":1,", "\"version\":2,",
       "a record of version 2, and this program reads version 1"},
      {"\"version\":1,", "", "a record of version null, and this program reads version 1"},
      {id, "../../../../etc/x", "damaged in line 1"},
      {"\"uid\":1000", "\"uid\":4294967296", "damaged in line 1"},
      {"\"uid\":1000", "\"uid\":1e300", "damaged in line 1"},
      {"\"pid\":4242", "\"pid\":18446744073709551615", "damaged in line 1"},
      {"\"pid\":4242", "\"pid\":0", "damaged in line 1"},
      {"\"timeLimit\":90.0", "\"timeLimit\":-1", "damaged in line 1"},
      {"\"timeLimit\":90.0", "\"timeLimit\":\"90\"", "damaged in line 1"},
      {"[\"job.xml\"", "{\"a\":\"job.xml\"", "not a record of runlet-job"},
      {"\"options\":[\"job.xml\",\"--jobs\",\"2\"]", "\"options\":3", "damaged in line 1"},
      {"\"job\":\"/jobs", "\"bytes\":true,\"job\":\"\u20ac", "damaged in line 1"},
      {"\"count\":3", "\"count\":2", "damaged in line 2"},
      {"\"count\":3", "\"count\":4", "damaged in line 3"},
      {"\"2-3,9\"", "\"2-3\"", "damaged in line 2"},
      {"\"2-3,9\"", "\"9,2-3\"", "damaged in line 2"},
      {"\"2-3,9\"", "\"0-1,9\"", "damaged in line 2"},
      {"\"2-3,9\"", "\"2-2000000000\"", "damaged in line 2"},
      {"\"2-3,9\"", "\"3-2,9\"", "damaged in line 2"},
      {"abab", "ABAB", "damaged in line 2"},
      {"abab", "aba", "damaged in line 2"},
      {"{\"event\":\"plan\"", "{\"event\":7", "damaged in line 2"},
      {"{\"event\":\"plan\"", "[\"event\",\"plan\"", "damaged in line 2"},
      {"\"start\",\"time\":1700000001.0,\"task\":2", "\"start\",\"time\":1700000001.0,\"task\":4",
       "damaged in line 3"},
      {"\"attempt\":1,\"argv\"", "\"attempt\":0,\"argv\"", "damaged in line 3"},
      {"\"end\":\"failed\"", "\"end\":\"fine\"", "damaged in line 4"},
      {"\"code\":3", "\"code\":256", "damaged in line 4"},
      {"\"code\":3", "\"signal\":3", "damaged in line 4"},
      {"\"event\":\"end\"", "\"event\":\"start\"", "damaged in line 4"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.from) + " -> " + row.to);
    std::string text = sound;
    const std::size_t position = text.find(row.from);
    ASSERT_NE(position, std::string::npos) << text;
    text.replace(position, std::string(row.from).size(), row.to);
    EXPECT_EQ(readWith(text), row.complaint);
  }
  EXPECT_EQ(readWith(sound), "");
  EXPECT_EQ(readWith(sound + "{\"event\":\"of a later program\"}\n"), "");
}

// What is nested that deep must not be copied or printed, each of which works by recursion.
TEST_F(DamagedRecord, MayBeNestedVeryDeep) {
  const auto lists = [](std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
  };
  const std::string deepest = lists(300'000);
  const std::string deep = lists(100'000);
  const std::string sound = soundText();
  const struct {
    const char* from;
    std::string to;
    const char* complaint;
  } rows[] = {
      {"\"version\":1,", "\"version\":" + deepest + ",", "damaged in line 1"},
      {"\"event\":\"session\"", "\"event\":" + deepest, "not a record of runlet-job"},
      {"\"id\":\"20261122-211530-3f2a\"", "\"id\":" + deepest, "damaged in line 1"},
      {"\"options\":[", "\"options\":[" + deep + ",", "damaged in line 1"},
      {"\"whole\":false", "\"whole\":" + deep, "damaged in line 1"},
      {"\"event\":\"plan\"", "\"event\":" + deep, "damaged in line 2"},
      {"\"event\":\"session\",", "\"event\":\"session\",\"x\":" + deepest + ",", ""},
      {"\"event\":\"plan\",", "\"event\":\"plan\",\"x\":" + deepest + ",", ""},
      {"\"event\":\"start\",", "\"event\":\"start\",\"x\":" + deepest + ",", ""},
      {"\"event\":\"end\",", "\"event\":\"end\",\"x\":" + deepest + ",", ""},
      {"\"event\":\"end\",", "\"event\":\"end\",\"logRemoved\":" + deep + ",", "damaged in line 4"},
      {"\"event\":\"stop\",", "\"event\":\"stop\",\"x\":" + deepest + ",", ""},
      {"\"event\":\"stop\",", "\"event\":\"later\",\"x\":" + deepest + ",", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.from + row.to.substr(0, 40));
    std::string text = sound;
    const std::size_t position = text.find(row.from);
    ASSERT_NE(position, std::string::npos) << text;
    text.replace(position, std::string(row.from).size(), row.to);
    EXPECT_EQ(readWith(text), row.complaint);
  }
  EXPECT_EQ(readWith(deep + "\n"), "not a record of runlet-job");
  EXPECT_EQ(readWith(sound + deep + "\n"), "damaged in line 6");
  EXPECT_EQ(readWith(sound + deep.substr(1) + "\n" + deep + "\n"), "damaged in line 6");
  folder_.write("record.jsonl", sound);
  EXPECT_EQ(jobOfRecord(folder_.write("deep", "{\"event\":" + deep + "}\n")), "");
  EXPECT_EQ(jobOfRecord(path()), "/jobs/job.xml");
}

TEST_F(DamagedRecord, HasALongVersionThatIsShortened) {
  std::string text = soundText();
  text.replace(text.find("\"version\":1"), 11, "\"version\":\"" + std::string(99999, 'x') + "\"");
  EXPECT_EQ(readWith(text), "a record of version \"" + std::string(99, 'x') +
                                "..., and this program reads version 1");
}

TEST_F(DamagedRecord, MayHaveABrokenLineOnlyBeforeASessionAndAtTheEnd) {
  const std::string sound = soundText();
  const std::string first = sound.substr(0, sound.find('\n') + 1);
  const std::string plan =
      sound.substr(first.size(), sound.find('\n', first.size()) + 1 - first.size());
  EXPECT_EQ(readWith(sound + "{\"event\n" + first + plan), "");
  EXPECT_EQ(readWith(sound + "{\"event\n" + plan), "damaged in line 6");
  EXPECT_EQ(readWith(sound + "{\"event\n"), "");
  EXPECT_EQ(readWith(sound + "{\"event"), "");
}

// Such a session has run nothing.
TEST_F(DamagedRecord, MayHaveSessionsWithoutTheirTasks) {
  const std::string sound = soundText();
  const std::string first = sound.substr(0, sound.find('\n') + 1);
  ASSERT_EQ(readWith(first), "");
  ASSERT_EQ(record_.sessions.size(), 1);
  EXPECT_FALSE(record_.sessions.back().isPlanned);
  EXPECT_TRUE(record_.sessions.back().tasks.empty());

  ASSERT_EQ(readWith(sound + first), "");
  ASSERT_EQ(record_.sessions.size(), 1);
  EXPECT_TRUE(record_.sessions.back().isPlanned);
  EXPECT_EQ(record_.sessions.back().tasks, (std::vector<std::int32_t>{2, 3, 9}));

  std::string secondAttempt = sound;
  for (const char* event : {"\"start\"", "\"end\""}) {
    const std::size_t position = secondAttempt.find("\"attempt\":1", secondAttempt.find(event));
    ASSERT_NE(position, std::string::npos);
    secondAttempt.replace(position, 11, "\"attempt\":2");
  }
  ASSERT_EQ(readWith(sound + first + secondAttempt), "");
  ASSERT_EQ(record_.sessions.size(), 2);
  ASSERT_EQ(record_.attempts.size(), 2);
  EXPECT_EQ(record_.attempts.back().session, 1);

  ASSERT_EQ(readWith(first + sound), "");
  EXPECT_FALSE(record_.sessions.front().isPlanned);
  EXPECT_TRUE(record_.sessions.back().isPlanned);
}

// Most of these files is a hole, which takes no space on the disk.
TEST_F(DamagedRecord, MayBeAFileOfAnySize) {
  for (const char* text : {"a text\n", ""}) {
    folder_.write("huge", text);
    ASSERT_EQ(truncate(folder_.file("huge").c_str(), off_t{1} << 40), 0);
    EXPECT_EQ(readRecord(folder_.file("huge"), &record_), "not a record of runlet-job") << text;
    EXPECT_EQ(jobOfRecord(folder_.file("huge")), "") << text;
  }
}

TEST_F(DamagedRecord, MayBeNoRecordAtAll) {
  for (const char* text : {"", "x", "x\n", "\n", "[]\n", "{}\n", "null\n", "<Job/>\n"}) {
    EXPECT_EQ(readWith(text), "not a record of runlet-job") << text;
  }
  EXPECT_EQ(readRecord(folder_.file("none"), &record_), "No such file or directory");
  EXPECT_EQ(readRecord(folder_.path(), &record_), "not a regular file");
  ASSERT_EQ(mkfifo(folder_.file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(readRecord(folder_.file("pipe"), &record_), "not a regular file");
}

}  // namespace
}  // namespace runlet_tool
