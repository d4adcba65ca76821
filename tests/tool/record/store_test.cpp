// Where records are kept, what finds them, and the claims of the processes that write them.

#include "tool/record/store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>

#include "adapter_test.h"
#include "temp_folder.h"
#include "tool/record/digest.h"

namespace runlet_tool {
namespace {

using runlet_test::TempFolder;

// Runs `work` in a child of an ordinary user with these variables, and returns its text.
std::string inChild(const char* state, const char* home, const std::function<std::string()>& work) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    if (geteuid() == 0 &&
        setresuid(runlet_test::otherId, runlet_test::otherId, runlet_test::otherId) != 0) {
      _exit(1);
    }
    unsetenv("XDG_STATE_HOME");
    unsetenv("HOME");
    if (state != nullptr) setenv("XDG_STATE_HOME", state, 1);
    if (home != nullptr) setenv("HOME", home, 1);
    const std::string text = work();
    _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  char buffer[4096];
  ssize_t count = 0;
  while ((count = read(ends[0], buffer, sizeof buffer)) > 0) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  close(ends[0]);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  return text;
}

std::string stateFolder() {
  std::string folder;
  const std::string complaint = findStateFolder(&folder);
  return complaint.empty() ? folder : "!" + complaint;
}

TEST(StateFolder, IsInTheHomeFolderOrWhereTheEnvironmentSays) {
  const TempFolder folder;
  const std::string home = folder.makeFolder("home", 0777);
  const std::string state = folder.makeFolder("state", 0777);
  EXPECT_EQ(inChild(state.c_str(), home.c_str(), stateFolder), state + "/runlet-job");
  EXPECT_EQ(runlet_test::modeOf(state + "/runlet-job"), 0700);
  const std::string usual = home + "/.local/state/runlet-job";
  EXPECT_EQ(inChild(nullptr, home.c_str(), stateFolder), usual);
  EXPECT_EQ(inChild("", home.c_str(), stateFolder), usual);
  EXPECT_EQ(inChild("relative", home.c_str(), stateFolder), usual);
}

TEST(StateFolder, MayBeImpossible) {
  const TempFolder folder;
  const std::string file = folder.write("file", "");
  const std::string denied = folder.makeFolder("denied", 0555);
  EXPECT_EQ(inChild(file.c_str(), nullptr, stateFolder),
            "!" + file + "/runlet-job: Not a directory");
  EXPECT_EQ(inChild(denied.c_str(), nullptr, stateFolder),
            "!" + denied + "/runlet-job: Permission denied");
}

TEST(StateFolder, MustBelongToTheCallerAndBeClosedToOthers) {
  const TempFolder folder;
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  const std::string state = folder.path() + "/runlet-job";
  const auto makeOpen = [&] {
    return mkdir(state.c_str(), 0700) == 0 && chmod(state.c_str(), 0720) == 0 ? "made" : "";
  };
  EXPECT_EQ(inChild(nullptr, nullptr, makeOpen), "made");
  EXPECT_EQ(inChild(folder.path().c_str(), nullptr, stateFolder), "!others may write to " + state);
  if (geteuid() != 0) return;
  ASSERT_EQ(chown(state.c_str(), 0, 0), 0);
  ASSERT_EQ(chmod(state.c_str(), 0755), 0);
  EXPECT_EQ(inChild(folder.path().c_str(), nullptr, stateFolder),
            "!" + state + " does not belong to you");
}

TEST(StateFolder, IsNotReachedByALinkOfAnotherUser) {
  const TempFolder folder;
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  const std::string link = folder.path() + "/runlet-job";
  const auto makeLink = [&] {
    const bool isMade =
        mkdir(folder.file("own").c_str(), 0700) == 0 && symlink("own", link.c_str()) == 0;
    return isMade ? stateFolder() : "";
  };
  EXPECT_EQ(inChild(folder.path().c_str(), nullptr, makeLink), link);
  REQUIRE_ROOT();
  ASSERT_EQ(lchown(link.c_str(), 62001, 62001), 0);
  EXPECT_EQ(inChild(folder.path().c_str(), nullptr, stateFolder),
            "!" + link + " is a link of user 62001");
  ASSERT_EQ(lchown(link.c_str(), 0, 0), 0);
  EXPECT_EQ(inChild(folder.path().c_str(), nullptr, stateFolder), link);
}

TEST(StateFolder, OfRootIgnoresTheEnvironment) {
  REQUIRE_ROOT();
  const TempFolder folder;
  setenv("XDG_STATE_HOME", folder.path().c_str(), 1);
  const std::string found = stateFolder();
  unsetenv("XDG_STATE_HOME");
  EXPECT_EQ(found, "/root/.local/state/runlet-job");
}

TEST(StateFolder, OfRootMustBeClosedToOthers) {
  REQUIRE_ROOT();
  const TempFolder folder("/root");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  const std::string place = folder.makeFolder("place");
  EXPECT_EQ(makeStateFolder(place + "/a/b"), "");
  EXPECT_EQ(runlet_test::modeOf(place + "/a/b"), 0700);
  ASSERT_EQ(chmod(place.c_str(), 0775), 0);
  EXPECT_EQ(makeStateFolder(place + "/a/b"), "others may write to " + place);
  ASSERT_EQ(chmod(place.c_str(), 0755), 0);
  ASSERT_EQ(chown(place.c_str(), runlet_test::otherId, 0), 0);
  EXPECT_EQ(makeStateFolder(place + "/a/b"), place + " does not belong to root");
  ASSERT_EQ(symlink(place.c_str(), folder.file("link").c_str()), 0);
  EXPECT_EQ(makeStateFolder(folder.file("link") + "/a"),
            folder.file("link") + " is a link, not a folder");
}

TEST(RecordId, IsADateAndDigits) {
  const std::string id = newRecordId();
  EXPECT_TRUE(isRecordId(id)) << id;
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_LT(id, newRecordId());
  for (const char* text :
       {"", "20261122-211530-3f2", "20261122-211530-3f2a0", "20261122-211530-3F2a",
        "2026112a-211530-3f2a", "20261122_211530-3f2a", "../../etc/passwd"}) {
    EXPECT_FALSE(isRecordId(text)) << text;
  }
}

TEST(Records, AreFoundByIdOrPath) {
  const TempFolder folder;
  const std::string state = folder.makeFolder("state", 0777);
  const auto find = [](const std::string& meant) {
    return [meant] {
      std::string path;
      const std::string complaint = findRecord(meant, &path);
      return complaint.empty() ? path : "!" + complaint;
    };
  };
  const std::string own = state + "/runlet-job";
  EXPECT_EQ(inChild(state.c_str(), nullptr, find("last")), "!there are no records in " + own);
  for (const char* name :
       {"20261122-211530-3f2a.jsonl", "20261123-000000-0000.jsonl", "20261123-000001-0000.jsonl",
        "zzz.jsonl", "20261124-000000-0000.other", "20261124-000000-0000.jsonl.x"}) {
    const int file = open((own + "/" + name).c_str(), O_CREAT | O_WRONLY, 0644);
    // The last one is empty, as after a power failure.
    const bool isLast = std::string(name).starts_with("20261123-000001");
    ASSERT_EQ(write(file, "{}\n", 3), 3);
    ASSERT_EQ(isLast ? ftruncate(file, 0) : 0, 0);
    ASSERT_EQ(close(file), 0);
  }
  struct Row {
    const char* meant;
    std::string path;
  };
  const Row rows[] = {
      {"last", own + "/20261123-000000-0000.jsonl"},
      {"20261122-211530-3f2a", own + "/20261122-211530-3f2a.jsonl"},
      {"20261122-211530-3f2b", "!no record 20261122-211530-3f2b in " + own},
      {"job xml", "!no record 'job xml' in " + own},
      {"", "!no record '' in " + own},
      {"./x", "./x"},
      {"x.jsonl", "x.jsonl"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(inChild(state.c_str(), nullptr, find(row.meant)), row.path) << row.meant;
  }
}

TEST(ProcessName, IsThatOfARunningProcess) {
  const ProcessName own = ownProcess();
  EXPECT_EQ(own.process, getpid());
  EXPECT_NE(own.start, 0);
  EXPECT_TRUE(mayBeRunning(own));
  ProcessName other = own;
  ++other.start;  // its id has been reused
  EXPECT_FALSE(mayBeRunning(other));
  other = own;
  other.boot = "before";
  EXPECT_FALSE(mayBeRunning(other));
  other = own;
  other.host += "2";
  EXPECT_TRUE(mayBeRunning(other));
  other = own;
  ++other.space;
  EXPECT_TRUE(mayBeRunning(other));
}

TEST(ProcessName, OfAProcessThatHasEndedIsNotRunning) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  siginfo_t info;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(processStart(child), 0);  // a zombie
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(processStart(child), 0);
}

// Waits until all writing ends of the pipe are closed.
void awaitEnd(int descriptor) {
  char unused = 0;
  EXPECT_EQ(read(descriptor, &unused, 1), 0);
}

class Claims : public testing::Test {
 protected:
  // A place that is closed to others if the tests run as root.
  Claims() : folder_(geteuid() == 0 ? "/root" : "/tmp") {
    chmod(folder_.path().c_str(), 0700);
  }

  std::string onlyClaim() const {
    const std::string command = "ls " + folder_.path() + "/claims";
    FILE* const list = popen(command.c_str(), "r");
    char name[200] = "";
    const bool isThere = std::fgets(name, sizeof name, list) != nullptr;
    pclose(list);
    return isThere ? folder_.path() + "/claims/" + std::string(name, strlen(name) - 1) : "";
  }

  TempFolder folder_;
};

TEST_F(Claims, AreForOneProcess) {
  {
    const Claim first(folder_.path(), "/job.xml", "/r.jsonl");
    EXPECT_EQ(first.complaint(), "");
    const std::string path = onlyClaim();
    const Claim second(folder_.path(), "/job.xml", "/r.jsonl");
    EXPECT_EQ(second.complaint(), "process " + std::to_string(getpid()) + " on " +
                                      ownProcess().host +
                                      " is running it; if it has ended, remove " + path);
    EXPECT_EQ(Claim(folder_.path(), "/other.xml", "/r.jsonl").complaint(), "");
  }
  EXPECT_EQ(onlyClaim(), "");
  EXPECT_EQ(Claim(folder_.path(), "/job.xml", "/r.jsonl").complaint(), "");
}

// A process whose claim comes later withdraws it.
TEST_F(Claims, OfTheFirstProcessSucceedWhenTheOthersHaveWithdrawn) {
  { const Claim sample(folder_.path(), "/job.xml", "/r.jsonl"); }
  const std::string folder = folder_.file("claims/");
  const std::string beginning = digestOf("/job.xml").substr(0, 32);
  folder_.write("claims/" + beginning + ".99999999999999999999.1.1", "");
  std::atomic<bool> isDone = false;
  std::thread other([&] {
    while (!isDone && onlyClaim().ends_with(".1.1")) std::this_thread::yield();
    unlink((folder + beginning + ".99999999999999999999.1.1").c_str());
  });
  EXPECT_EQ(Claim(folder_.path(), "/job.xml", "/r.jsonl").complaint(), "");
  isDone = true;
  other.join();
}

TEST_F(Claims, AreForOneOfManyProcessesAtTheSameMoment) {
  constexpr int rounds = 20;
  int successes = 0;
  constexpr std::size_t count = 8;
  for (int round = 0; round < rounds; ++round) {
    int begin[2];
    int answers[2];
    int end[2];
    ASSERT_EQ(pipe(begin) + pipe(answers) + pipe(end), 0);
    for (std::size_t i = 0; i < count; ++i) {
      if (fork() != 0) continue;
      close(begin[1]);
      close(end[1]);
      awaitEnd(begin[0]);
      const Claim claim(folder_.path(), "/job.xml", "/r.jsonl");
      const bool isTaken = claim.complaint().find(" is running it; ") != std::string::npos;
      const char answer = claim.complaint().empty() ? 'y' : isTaken ? 'n' : '!';
      // The one that has it keeps it until all have answered.
      if (write(answers[1], &answer, 1) == 1) awaitEnd(end[0]);
      _exit(0);
    }
    close(begin[1]);
    std::string all(count, ' ');
    for (char& answer : all) ASSERT_EQ(read(answers[0], &answer, 1), 1);
    close(end[1]);
    std::sort(all.begin(), all.end());
    EXPECT_TRUE(all == "nnnnnnny" || all == "nnnnnnnn") << all;
    successes += all.back() == 'y' ? 1 : 0;
    while (waitpid(-1, nullptr, 0) > 0) continue;
    for (const int descriptor : {begin[0], answers[0], answers[1], end[0]}) close(descriptor);
  }
  EXPECT_GT(successes, 0);
}

// Of a process that was killed, and so could not remove its claim.
TEST_F(Claims, OfAnEndedProcessNameItsRecordAndCanBeRemoved) {
  const pid_t child = fork();
  if (child == 0) {
    const Claim claim(folder_.path(), "/job.xml", "/r\xff.jsonl");
    _exit(claim.complaint().empty() ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  EXPECT_NE(onlyClaim(), "");
  for (int i = 0; i < 2; ++i) {
    Claim claim(folder_.path(), "/job.xml", "/r\xff.jsonl");
    EXPECT_EQ(claim.complaint(), "");
    EXPECT_EQ(claim.abandoned(), std::vector<std::string>{"/r\xff.jsonl"});
    if (i > 0) claim.removeAbandoned();
  }
  EXPECT_EQ(onlyClaim(), "");
}

TEST_F(Claims, ThatAreDamagedAreReported) {
  std::string path;
  {
    const Claim claim(folder_.path(), "/job.xml", "/r.jsonl");
    path = onlyClaim();
    ASSERT_EQ(rename(path.c_str(), (path + "x").c_str()), 0);
  }
  path += "x";
  ASSERT_EQ(truncate(path.c_str(), 10), 0);
  EXPECT_EQ(Claim(folder_.path(), "/job.xml", "/r.jsonl").complaint(),
            path + " is damaged; remove it if nothing is running");
}

TEST_F(Claims, MayBeImpossible) {
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit whole{};
  getrlimit(RLIMIT_FSIZE, &whole);
  const rlimit tight{0, whole.rlim_max};
  setrlimit(RLIMIT_FSIZE, &tight);
  const std::string complaint = Claim(folder_.path(), "/job.xml", "/r.jsonl").complaint();
  setrlimit(RLIMIT_FSIZE, &whole);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(complaint, folder_.file("claims") + ": File too large");
  EXPECT_EQ(onlyClaim(), "");
  ASSERT_EQ(rmdir(folder_.file("claims").c_str()), 0);

  folder_.write("claims", "");
  EXPECT_EQ(Claim(folder_.path(), "/job.xml", "/r.jsonl").complaint(),
            folder_.file("claims") + " is not a folder");
}

}  // namespace
}  // namespace runlet_tool
