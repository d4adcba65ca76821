// The built adapter on random requests, compared with the model's results.
//
// RUNLET_REQUESTS is the number of requests for each test, RUNLET_REQUEST_SEED the random seed, and
// RUNLET_REQUEST_CASE selects a single one. With RUNLET_REQUEST_SHOW each test shows how many
// requests reached which outcome.

#include "request.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <regex>
#include <sstream>

#include "generator.h"
#include "process.h"
#include "programs.h"
#include "temp_folder.h"
#include "visible.h"

namespace runlet_model {
namespace {

using runlet_test::ProcessOptions;
using runlet_test::ProcessResult;
using runlet_test::TempFolder;
using runlet_test::visible;
using Strings = std::vector<std::string>;

// Every outcome that a test names must be reached within this many requests, or up to ten times as
// many: the outcomes also depend on the user and the machine.
constexpr std::uint64_t enoughRequests = 400;
constexpr std::uint64_t mostRequests = 10;
constexpr std::uint64_t usualSeed = 1;
constexpr std::uint32_t otherId = 65534;
constexpr int attempts = 50;
constexpr int enoughFailures = 3;
constexpr unsigned enoughOfEach = 3;

std::uint64_t setting(const char* name, std::uint64_t usual) {
  const char* text = std::getenv(name);
  return text == nullptr ? usual : std::strtoull(text, nullptr, 10);
}

// The same with its newlines.
std::string visibleLines(const std::string& text) {
  return std::regex_replace(visible(text), std::regex("\\\\x0a"), "\n");
}

std::string threeTimes(std::uint32_t id) {
  const std::string text = std::to_string(id);
  return text + " " + text + " " + text;
}

// As the recorder writes it, except for the process id.
std::string recordOf(const Child& child) {
  std::ostringstream out;
  for (const std::string& argument : child.arguments)
    out << "argument " << visible(argument) << "\n";
  out << "folder " << visible(child.folder) << "\numask " << child.mask << "\n";
  out << "user " << threeTimes(child.identity.uid) << "\n";
  out << "group " << threeTimes(child.identity.gid) << "\n";
  out << "error " << (child.joined ? "joined and kept" : "apart") << "\npid PID\n";
  return out.str();
}

std::string withoutIds(const std::string& text, const char* before) {
  return std::regex_replace(text, std::regex(std::string("(") + before + ")[0-9]+\n"), "$1PID\n");
}

std::vector<std::string> idsIn(const std::string& text, const char* before) {
  const std::regex pattern(std::string(before) + "([0-9]+)\n");
  Strings ids;
  for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
    ids.push_back((*match)[1]);
  }
  return ids;
}

constexpr char announcement[] = "processId=";
constexpr char recordedId[] = "pid ";

// Whether `text`, from `at` on, can be the output of the tasks from `task` on.
bool isPossible(const std::vector<TaskOutput>& tasks, const std::string& text, std::size_t task,
                std::size_t at) {
  if (task == tasks.size()) return at == text.size();
  const TaskOutput& output = tasks[task];
  for (std::size_t before = 0; before <= output.ofChild.size(); ++before) {
    std::string whole;
    for (std::size_t i = 0; i < output.ofChild.size(); ++i) {
      if (i == before) whole += output.ofAdapter;
      whole += output.ofChild[i];
    }
    if (before == output.ofChild.size()) whole += output.ofAdapter;
    if (text.compare(at, whole.size(), whole) != 0) continue;
    if (isPossible(tasks, text, task + 1, at + whole.size())) return true;
  }
  return false;
}

std::string concatenated(const std::vector<TaskOutput>& tasks) {
  std::string text;
  for (const TaskOutput& task : tasks) {
    text += task.ofAdapter;
    for (const std::string& piece : task.ofChild) text += piece;
  }
  return text;
}

// The folder in which a request runs, and its model.
class World {
 public:
  World() : machine_(folder_.path(), geteuid()) {
    machine_.searchPath = {folder_.file("bin"), folder_.file("closed")};
    addFolder("bin", 0755);
    addFolder("jobs", 0755);
    addFolder("shot", 0777);
    addFolder("shot/shot", 0755);
    addFolder("w %s", 0755);
    addFolder("closed", 0700);
    addText("script", "exit 5\n", 0644);
    addText("bin/script", "exit 6\n", 0755);
    addText("bin/plain", "exit 7\n", 0644);
    addText("closed/secret", "exit 8\n", 0755);
    folder_.write("record", "", 0666);
    machine_.add(folder_.file("record"), {EntryKind::recorder, 0666, ""});
  }

  void add(const Case& request) {
    const std::string recorder = folder_.file("bin/recorder");
    std::filesystem::copy_file(runlet_test::recorderPath, recorder);
    chmod(recorder.c_str(), request.recorderMode);
    machine_.add(recorder, {EntryKind::recorder, request.recorderMode, ""});
    addText(request.jobPath.substr(path().size() + 1), request.jobText, request.jobMode);
  }

  const std::string& path() const {
    return folder_.path();
  }
  std::string record() const {
    return folder_.file("record");
  }
  Machine* machine() {
    return &machine_;
  }

  std::string wrongModes() const {
    std::ostringstream wrong;
    for (const auto& [name, entry] : machine_.entries()) {
      if (name.rfind(path(), 0) != 0) continue;
      const int mode = runlet_test::modeOf(name);
      if (mode == static_cast<int>(entry.mode)) continue;
      wrong << name << " has mode " << std::oct << mode << " instead of " << entry.mode << "\n";
    }
    return wrong.str();
  }

 private:
  void addFolder(const std::string& name, unsigned mode) {
    machine_.add(folder_.makeFolder(name, mode), {EntryKind::folder, mode, ""});
  }
  void addText(const std::string& name, const std::string& text, unsigned mode) {
    machine_.add(folder_.write(name, text, mode), {EntryKind::text, mode, text});
  }

  TempFolder folder_;
  Machine machine_;
};

class RequestModel : public testing::Test {
 protected:
  RequestModel() {
    std::filesystem::copy_file(runlet_test::adapterPath, adapter_);
    std::filesystem::permissions(adapter_, std::filesystem::perms{0755});
  }

  // Tries requests of a kind, which must reach each of `outcomes`.
  void tryRequests(const Oddness& odd, const Strings& outcomes) {
    const bool isSingle = std::getenv("RUNLET_REQUEST_CASE") != nullptr;
    const std::uint64_t first = setting("RUNLET_REQUEST_CASE", 0);
    const std::uint64_t count = isSingle ? 1 : setting("RUNLET_REQUESTS", RUNLET_USUAL_REQUESTS);
    const bool mustReach = count >= enoughRequests;
    const auto mustContinue = [&](std::uint64_t tried) {
      return tried < count || (mustReach && tried < count * mostRequests && !areReached(outcomes));
    };
    for (std::uint64_t i = 0; mustContinue(i) && failures_ < enoughFailures; ++i) {
      tryRequest(odd, first + i);
    }
    if (std::getenv("RUNLET_REQUEST_SHOW") != nullptr) show();
    if (!mustReach) return;
    for (const std::string& outcome : outcomes) {
      EXPECT_GE(reached_[outcome], enoughOfEach) << outcome;
    }
  }

 private:
  // The seed of a case, which differs from test to test.
  std::uint64_t startOf(std::uint64_t number) const {
    std::string text = testing::UnitTest::GetInstance()->current_test_info()->name();
    text.append(" ").append(std::to_string(seed_)).append(" ").append(std::to_string(number));
    std::seed_seq sequence(text.begin(), text.end());
    std::array<std::uint32_t, 2> mixed{};
    sequence.generate(mixed.begin(), mixed.end());
    return std::uint64_t{mixed[0]} << 32U | mixed[1];
  }

  bool areReached(const Strings& outcomes) const {
    return std::all_of(outcomes.begin(), outcomes.end(), [&](const std::string& outcome) {
      const auto reached = reached_.find(outcome);
      return reached != reached_.end() && reached->second >= enoughOfEach;
    });
  }

  // Generates requests until the model covers one.
  void tryRequest(const Oddness& odd, std::uint64_t number) {
    Random random(startOf(number));
    for (int attempt = 0; attempt < attempts; ++attempt) {
      if (isCovered(odd, number, &random)) return;
    }
    FAIL() << "the model covers none of the requests of case " << number;
  }

  // False if the model does not cover the next request.
  bool isCovered(const Oddness& odd, std::uint64_t number, Random* random) {
    // Always drawn, so that the rest does not depend on the user who runs the tests.
    const bool isUnprivileged = random->chance(25) && geteuid() == 0;
    const Identity caller =
        isUnprivileged ? Identity{otherId, otherId} : Identity{geteuid(), getegid()};
    World world;
    const Case request = Generator(random, odd, world.path(), caller, isUnprivileged).make();
    world.add(request);
    try {
      const Prediction prediction = predict(
          {request.arguments, world.path(), caller, scratch_.file("scratch")}, world.machine());
      compare(request, prediction, world, number);
    } catch (const NotCovered&) {
      return false;
    }
    return true;
  }

  void compare(const Case& request, const Prediction& prediction, const World& world,
               std::uint64_t number) {
    for (const std::string& mark : prediction.marks) ++reached_[mark];
    const ProcessResult result = runAdapter(request, world);
    const std::string differences = differencesOf(prediction, result, world);
    if (differences.empty()) return;
    ++failures_;
    ADD_FAILURE() << "RUNLET_REQUEST_SEED=" << seed_ << " RUNLET_REQUEST_CASE=" << number << "\n"
                  << describe(request) << differences;
  }

  ProcessResult runAdapter(const Case& request, const World& world) const {
    ProcessOptions options;
    options.program = adapter_;
    options.arguments = request.arguments;
    options.folder = world.path();
    options.environment = {{"PATH", world.path() + "/bin:" + world.path() + "/closed"},
                           {"RUNLET_RECORD", world.record()}};
    const bool isUnprivileged = request.isUnprivileged;
    options.prepare = [isUnprivileged] {
      const rlimit none{0, 0};
      setrlimit(RLIMIT_CORE, &none);
      if (!isUnprivileged) return;
      if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(otherId) != 0) _exit(97);
    };
    return runProcess(options);
  }

  static std::string difference(const char* what, const std::string& expected,
                                const std::string& actual) {
    if (expected == actual) return "";
    return std::string("--- ") + what + ", expected:\n" + expected + "\n--- " + what +
           ", in fact:\n" + actual + "\n";
  }

  static std::string differencesOf(const Prediction& prediction, const ProcessResult& result,
                                   const World& world) {
    std::string record;
    for (const Child& child : prediction.children) record += recordOf(child);
    const std::string recorded = runlet_test::readFile(world.record());
    const std::string output = withoutIds(result.output, announcement);
    std::string all =
        difference("status", prediction.status, runlet_test::describeStatus(result.waitStatus)) +
        difference("standard error", prediction.error, result.error) +
        difference("children", record, withoutIds(recorded, recordedId));
    if (!isPossible(prediction.output, output, 0, 0)) {
      all += difference("standard output", concatenated(prediction.output), output);
    }
    return all + world.wrongModes() + strangeIds(result.output, recorded);
  }

  // Every child that recorded itself must have been announced, in the same order.
  static std::string strangeIds(const std::string& output, const std::string& recorded) {
    const Strings announced = idsIn(output, announcement);
    std::size_t at = 0;
    for (const std::string& id : idsIn(recorded, recordedId)) {
      while (at < announced.size() && announced[at] != id) ++at;
      if (at == announced.size()) return "not announced: process " + id + "\n";
    }
    return "";
  }

  static std::string describe(const Case& request) {
    std::ostringstream out;
    out << "--- " << request.jobPath << " (" << std::oct << request.jobMode << "):\n"
        << visibleLines(request.jobText) << "\n";
    out << "--- recorder: " << request.recorderMode
        << (request.isUnprivileged ? ", started as another user" : "") << "\n--- command line:\n";
    for (const std::string& word : request.arguments) out << "'" << visible(word) << "' ";
    out << "\n";
    return out.str();
  }

  void show() const {
    for (const auto& [name, count] : reached_) std::cout << count << " " << name << "\n";
  }

  TempFolder scratch_;
  const std::string adapter_ = scratch_.file("adapter");
  const std::uint64_t seed_ = setting("RUNLET_REQUEST_SEED", usualSeed);
  std::map<std::string, unsigned> reached_;
  int failures_ = 0;
};

TEST_F(RequestModel, HoldsForCommandLines) {
  Oddness odd;
  odd.opcode = 40;
  odd.options = 30;
  odd.numbers = 10;
  tryRequests(odd, {"no opcode", "unknown opcode", "nothing to do", "information", "wrong option",
                    "no job file name", "timed out", "no task to run", "one task"});
}

TEST_F(RequestModel, HoldsForRangesAndTimeLimits) {
  Oddness odd;
  odd.ranges = 80;
  odd.numbers = 15;
  odd.pings = 50;
  tryRequests(odd,
              {"no task to run", "one task", "several tasks", "timed out", "within the limit"});
}

TEST_F(RequestModel, HoldsForTheStructureOfJobFiles) {
  Oddness odd;
  odd.structure = 15;
  odd.placeholders = 80;
  odd.parameters = 25;
  odd.numbers = 6;
  odd.pings = 20;
  tryRequests(odd, {"invalid syntax", "could not load", "strip brace failed", "fewer values",
                    "no task to run", "one task", "several tasks"});
}

TEST_F(RequestModel, HoldsForTheTextsOfJobFiles) {
  Oddness odd;
  odd.markup = 8;
  odd.braces = 6;
  odd.numbers = 10;
  odd.parameters = 15;
  tryRequests(odd, {"length error", "strip brace failed", "invalid syntax", "could not load",
                    "ran, errors joined", "ran, errors apart"});
}

TEST_F(RequestModel, HoldsForDamagedJobFiles) {
  Oddness odd;
  odd.bytes = 90;
  tryRequests(odd, {"could not load", "invalid syntax", "strip brace failed", "one task",
                    "ran, errors joined"});
}

TEST_F(RequestModel, HoldsForTemplates) {
  Oddness odd;
  odd.placeholders = 80;
  odd.wrongPlaceholders = 4;
  odd.parameters = 30;
  odd.pings = 2;
  tryRequests(odd, {"fill-in failed", "no value for a parameter", "fewer values", "child wrote",
                    "exit code", "ran, errors joined", "several tasks"});
}

TEST_F(RequestModel, HoldsForProgramsAndFolders) {
  Oddness odd;
  odd.programs = 40;
  odd.appPaths = 45;
  odd.folders = 50;
  odd.jobPaths = 12;
  odd.pings = 2;
  tryRequests(odd, {"no space in the line", "no such program", "program not executable",
                    "made executable", "chmod failed", "no such folder", "script ran", "exit code",
                    "killed", "child wrote", "child wrote an error", "a later task not started"});
}

TEST_F(RequestModel, HoldsForRights) {
  Oddness odd;
  odd.rights = 50;
  odd.appPaths = 30;
  odd.folders = 70;
  odd.pings = 2;
  Strings outcomes = {"no group", "group refused", "no user name", "unknown user", "user refused"};
  if (geteuid() == 0) {
    // Only root can become another user.
    outcomes.insert(outcomes.end(),
                    {"user looked up", "another group", "another user", "folder is closed"});
  }
  tryRequests(odd, outcomes);
}

}  // namespace
}  // namespace runlet_model
