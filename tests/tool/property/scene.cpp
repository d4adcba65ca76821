#include "scene.h"

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <sstream>

#include "options.h"
#include "programs.h"

namespace runlet_test {
namespace {

using runlet_model::Oddness;
using runlet_model::Random;

constexpr std::size_t levels = 20;

Kind faultless() {
  Kind kind;
  kind.odd = {.opcode = 0,
              .options = 0,
              .structure = 0,
              .markup = 0,
              .braces = 0,
              .numbers = 0,
              .parameters = 0,
              .placeholders = 30,
              .wrongPlaceholders = 0,
              .programs = 0,
              .appPaths = 12,
              .folders = 0,
              .jobPaths = 0,
              .rights = 0,
              .pings = 0};
  return kind;
}

Kind usual() {
  Kind kind;
  kind.odd.opcode = 0;
  kind.odd.options = 0;
  kind.odd.pings = 0;
  return kind;
}

// On a machine that has everything that the job needs.
Kind onCompleteMachine(Kind kind) {
  kind.odd.programs = 0;
  kind.odd.folders = 0;
  kind.odd.rights = 0;
  return kind;
}

std::vector<Kind> faultyKinds() {
  Kind structure = usual();
  structure.odd.structure = 6;
  structure.odd.placeholders = 80;
  structure.odd.parameters = 25;
  structure.odd.numbers = 6;
  Kind texts = usual();
  texts.odd.markup = 8;
  texts.odd.braces = 6;
  texts.odd.numbers = 10;
  texts.odd.parameters = 15;
  texts.rough = 80;
  Kind damaged = usual();
  damaged.odd.bytes = 90;
  damaged.rough = 30;
  Kind templates = usual();
  templates.odd.placeholders = 80;
  templates.odd.wrongPlaceholders = 4;
  templates.odd.parameters = 30;
  templates.rough = 60;
  return {structure, texts, damaged, templates};
}

std::vector<Kind> machineKinds() {
  Kind programs = usual();
  programs.odd.programs = 40;
  programs.odd.appPaths = 45;
  programs.odd.folders = 50;
  programs.odd.jobPaths = 12;
  programs.shellPath = 15;
  programs.odd.rights = 25;
  programs.otherPrograms = 50;
  Kind rights = usual();
  rights.odd.rights = 50;
  rights.odd.appPaths = 30;
  rights.odd.folders = 90;
  return {programs, rights};
}

// Cases too important to leave to chance.
std::vector<Kind> rareKinds() {
  Kind scripts = faultless();
  scripts.scripts = 100;
  Kind lacking = faultless();
  lacking.emptyProgram = 30;
  lacking.bareJobFile = 40;
  lacking.lostValue = 40;
  return {scripts, lacking};
}

const Kind& pickKind(Random* random, const std::vector<Kind>& faulty) {
  static const Kind faultlessKind = faultless();
  return random->chance(30) ? faultlessKind : random->pick(faulty);
}

// Replaces one occurrence of `part` by `text`.
void replaceOne(Random* random, const std::string& part, const std::string& text,
                std::string* whole) {
  const std::size_t count = countOf(part, *whole);
  if (count == 0) return;
  std::size_t at = whole->find(part);
  for (std::size_t left = random->below(count); left > 0; --left) {
    at = whole->find(part, at + part.size());
  }
  whole->replace(at, part.size(), text);
}

// Leaves the job one parameter, which has no value.
void loseValue(std::string* jobText) {
  const std::size_t begin = jobText->find("<JobParams");
  const std::size_t end = jobText->find('>', jobText->find("/JobParams", begin));
  if (begin == std::string::npos || end == std::string::npos) return;
  const std::string lost = "<JobParams><Param><Name>{name}</Name></Param></JobParams>";
  jobText->replace(begin, end + 1 - begin, lost);
}

// White space that is typed, condensed or unusual, invalid UTF-8, and characters cut by the limit
// of a lookup.
void roughen(Random* random, std::string* text) {
  struct Change {
    std::string from;
    std::string to;
  };
  static const std::vector<Change> changes = {
      {"&#9;", "\t"},
      {"&#9;", "\t"},
      {" ", "  "},
      {" ", "\t"},
      {" ", "\n"},
      {" ", "\xc2\xa0"},
      {"caf\xc3\xa9", "a\xff"},
      {"caf\xc3\xa9", "\xed\xa0\x80"},
      {"caf\xc3\xa9", "\xa9"},
      {"shot_A", "\xf4\x90\x80\x80"},
      {"shot_A", "\xfe {x"},
      {"shot_A", "\xc0\x80"},
      {"name", "\xff"},
      {"told", "\xf8"},
      {"{", "{\xe2\x82\xac"},
      {"}", "\xff}"},
      {"&#9;", "&#11;"},
      {" ", "&#160;"},
      {"recorder", "rec\xff"},
      {"vvv", "v\xc3\xa9"},
      {"&#9;", "&#1;"},
      {"&#9;", "&#10;"},
      {" ", "&#xD800;"},
      {"tn", "tn\xf0\x9f\x8e\xac"},
  };
  for (std::size_t left = 1 + random->below(3); left > 0; --left) {
    const Change& change = random->pick(changes);
    replaceOne(random, change.from, change.to, text);
  }
}

// Copies of the programs that every user may execute.
class Programs {
 public:
  Programs() {
    copy(plainAdapterPath, adapter);
    copy(toolPath, tool);
    copy(spyPath, spy);
  }

 private:
  static void copy(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to);
    std::filesystem::permissions(to, std::filesystem::perms{0755});
  }
  const TempFolder folder_;

 public:
  const std::string adapter = folder_.file("adapter");
  const std::string tool = folder_.file("runlet-job");
  const std::string spy = folder_.file("spy.so");
};

const Programs& programs() {
  static const Programs copies;
  return copies;
}

std::string fromHex(const std::string& text) {
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isCode = text.compare(at, 2, "\\x") == 0;
    out += isCode ? static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)) : text[at];
    if (isCode) at += 3;
  }
  return out;
}

// The rest of the line after `key`.
std::optional<std::string> valueOf(const std::string& key, const std::string& line) {
  if (line.rfind(key, 0) != 0) return std::nullopt;
  return fromHex(line.substr(key.size()));
}

std::map<std::string, RecordedChild> childrenIn(const std::string& record) {
  std::map<std::string, RecordedChild> children;
  RecordedChild child;
  std::istringstream lines(record);
  for (std::string line; std::getline(lines, line);) {
    if (const auto argument = valueOf("argument ", line)) child.arguments.push_back(*argument);
    if (const auto folder = valueOf("folder ", line)) child.folder = *folder;
    const auto pid = valueOf("pid ", line);
    if (!pid) child.text += line + "\n";
    if (!pid) continue;
    children[*pid] = child;
    child = {};
  }
  return children;
}

Strings announcedIn(const std::string& output) {
  const std::string before = "[ServerMessage]ProcessStarted processId=";
  Strings pids;
  for (std::size_t at = output.find(before); at != std::string::npos;
       at = output.find(before, at + 1)) {
    const std::size_t start = at + before.size();
    pids.push_back(output.substr(start, output.find('\n', start) - start));
  }
  return pids;
}

Strings endedByNul(const std::string& text) {
  Strings parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, '\0');) parts.push_back(part);
  return parts;
}

}  // namespace

const Kind& anyKind(Random* random) {
  static const std::vector<Kind> kinds = [] {
    std::vector<Kind> all = faultyKinds();
    for (const Kind& kind : machineKinds()) all.push_back(kind);
    for (const Kind& kind : rareKinds()) all.push_back(kind);
    return all;
  }();
  return pickKind(random, kinds);
}

const Kind& kindOnCompleteMachine(Random* random) {
  static const std::vector<Kind> kinds = [] {
    std::vector<Kind> all = faultyKinds();
    all.push_back(usual());
    std::transform(all.begin(), all.end(), all.begin(), onCompleteMachine);
    all.back().odd.rights = 40;  // missing ids
    return all;
  }();
  return pickKind(random, kinds);
}

Range anyRange(Random* random) {
  constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t greatest = std::numeric_limits<std::int32_t>::max();
  Range range;
  if (random->chance(60)) return range;
  const auto first =
      random->pick<std::int32_t>({1, 1, 1, 1, 2, 2, 2, 3, 4, 0, 0, -1, -3, 100, smallest});
  const auto count = random->pick<std::int32_t>(
      {1, 2, 2, 2, 3, 3, 4, 5, 5, 100, greatest, greatest, 0, -1, smallest});
  const bool hasFirst = random->chance(75);
  if (hasFirst) range.first = first;
  if (!hasFirst || random->chance(75)) range.count = count;
  return range;
}

std::string visibleLines(const std::string& text) {
  constexpr char digits[] = "0123456789abcdef";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n' || (c >= ' ' && c <= '~' && c != '\\')) {
      out += c;
    } else {
      out += std::string("\\x") + digits[byte >> 4U] + digits[byte & 15U];
    }
  }
  return out;
}

std::size_t countOf(const std::string& part, const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

Scene::Scene(Random* random, const Kind& kind, bool mayLackRights) {
  // Always drawn, so that the rest does not depend on the user who runs the tests.
  const bool isUnprivileged = random->chance(mayLackRights ? 25 : 0) && geteuid() == 0;
  const runlet_model::Identity caller = isUnprivileged
                                            ? runlet_model::Identity{otherId, otherId}
                                            : runlet_model::Identity{geteuid(), getegid()};
  Oddness odd = kind.odd;
  odd.foreignFolder = base_.path();
  case_ = runlet_model::Generator(random, odd, folder_, caller, isUnprivileged).make();
  const runlet_model::OptionValues values = runlet_model::readOptions(case_.arguments);
  jobFile_ = values.jobFile;
  appPath_ = values.appPath;
  userName_ = values.userName;
  if (random->chance(kind.shellPath)) {
    appPath_ = random->pick<std::string>({folder_ + "/a b/tool", folder_ + "/a;b/tool",
                                          folder_ + "/$x/tool", "a b/tool", folder_ + "/(a)/tool"});
  }
  if (random->chance(kind.otherPrograms)) changeProgram(random);
  makeRare(random, kind);
  if (random->chance(kind.rough)) roughen(random, &case_.jobText);
  makeFolders();
  makePrograms(random, kind.shellPath > 0);
  base_.write(case_.jobPath.substr(base_.path().size() + 1), case_.jobText, case_.jobMode);
}

// Scripts, an inaccessible one, and a different program for each task.
void Scene::changeProgram(Random* random) {
  const auto program =
      random->pick<std::string>({"script", "script", "plain", "secret", "secret", "%tp1"});
  replaceOne(random, "recorder", program, &case_.jobText);
  const bool isGiven = !appPath_.empty();
  if (isGiven && program == "secret") appPath_ = folder_ + "/closed/x";
  if (program != "%tp1") return;
  for (const auto& [value, name] : {std::pair("shot_A", "plain"), std::pair("101", "recorder")}) {
    replaceOne(random, value, name, &case_.jobText);
  }
}

void Scene::makeRare(Random* random, const Kind& kind) {
  if (random->chance(kind.scripts)) {
    scripts_ = random->chance(30) ? Strings{"#!/missing/sh\nexit 5\n"} : goodScripts();
    replaceOne(random, "recorder", "script", &case_.jobText);
  }
  if (random->chance(kind.emptyProgram)) {
    replaceOne(random, folder_ + "/bin/recorder", "\"\"", &case_.jobText);
  }
  if (random->chance(kind.bareJobFile)) {
    case_.jobPath = folder_ + "/job.xml";
    jobFile_ = "job.xml";
  }
  if (random->chance(kind.lostValue)) {
    loseValue(&case_.jobText);
    replaceOne(random, "recorder", "recorder %jp1", &case_.jobText);
  }
}

std::string Scene::makeDeepFolder(const TempFolder& base) {
  std::string name = "deep";
  for (std::size_t level = 0; level < levels; ++level) {
    base.makeFolder(name);
    name += "/deep";
  }
  return base.makeFolder(name);
}

std::string Scene::inScene(const std::string& name) const {
  return folder_.substr(base_.path().size() + 1) + "/" + name;
}

void Scene::makeFolders() const {
  for (const char* name : {"bin", "jobs", "w %s"}) base_.makeFolder(inScene(name));
  base_.makeFolder(inScene("shot"), 0777);
  base_.makeFolder(inScene("closed"), 0700);
  base_.write("record", "", 0666);
  base_.write("commands", "", 0666);
}

void Scene::makeRecorder(const std::string& folder) const {
  const std::string path = folder_ + "/" + folder + "/recorder";
  std::filesystem::copy_file(recorderPath, path);
  chmod(path.c_str(), case_.recorderMode);
}

void Scene::makePrograms(Random* random, bool withShellPaths) const {
  makeRecorder("bin");
  for (const char* folder : {"a b", "a;b", "$x", "(a)"}) {
    if (!withShellPaths) break;
    base_.makeFolder(inScene(folder));
    makeRecorder(folder);
  }
  base_.write(inScene("notes"), "exit 0\n");
  writeScript(random, "script", 0644);
  writeScript(random, "bin/script", 0755);
  writeScript(random, "bin/plain", 0644);
  writeScript(random, "closed/secret", 0755);
}

Strings Scene::goodScripts() const {
  return {"exit 6\n", "#!/bin/sh\nexit 5\n", "#! /bin/sh -e\nexit 7\n",
          "#!" + folder_ + "/bin/recorder\n"};
}

void Scene::writeScript(Random* random, const std::string& name, unsigned mode) const {
  const Strings odd = {"",
                       "#!\n",
                       "#!   \n",
                       "#!/bin/sh",
                       "#!/missing/sh\nexit 5\n",
                       "#!/bin/sh\r\nexit 5\n",
                       "#!sh\nexit 5\n",
                       "#!bin/recorder\n",
                       "#!" + folder_ + "/notes\n",
                       "#!" + folder_ + "/shot\n",
                       "#!" + folder_ + "/bin/script\n",
                       "#!" + folder_ + "/closed/secret\n",
                       "#!/" + std::string(300, 'x') + "\n",
                       "# no interpreter\nexit 4\n"};
  const Strings any = random->chance(50) ? odd : goodScripts();
  base_.write(inScene(name), random->pick(scripts_.empty() ? any : scripts_), mode);
}

Strings Scene::options(const Range& range) const {
  Strings words;
  if (range.first) words.insert(words.end(), {"-s", std::to_string(*range.first)});
  if (range.count) words.insert(words.end(), {"-n", std::to_string(*range.count)});
  if (!appPath_.empty()) words.insert(words.end(), {"-a", appPath_});
  if (!userName_.empty()) words.insert(words.end(), {"-u", userName_});
  return words;
}

ProcessOptions Scene::program(const std::string& path, const Strings& words) const {
  ProcessOptions options;
  options.arguments = {path};
  options.arguments.insert(options.arguments.end(), words.begin(), words.end());
  options.folder = folder_;
  options.environment = {{"PATH", folder_ + "/bin:" + folder_ + "/closed"},
                         {"RUNLET_RECORD", base_.file("record")},
                         {"RUNLET_SHELL_RECORD", base_.file("commands")},
                         {"RUNLET_GROUNDS", base_.path()}};
  if (path != programs().tool || words[0] == "exec") {
    options.environment.emplace_back("LD_PRELOAD", programs().spy);
    // It must come before a sanitizer's library.
    options.environment.emplace_back("ASAN_OPTIONS", "verify_asan_link_order=0");
  }
  const bool isUnprivileged = case_.isUnprivileged;
  options.prepare = [isUnprivileged] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    if (!isUnprivileged) return;
    if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(otherId) != 0) _exit(97);
  };
  return options;
}

ProcessResult Scene::run(const std::string& path, const Strings& words) const {
  return runProcess(program(path, words));
}

AdapterRun Scene::runAdapter(const Range& range) const {
  Range whole = range;
  if (!range.count) whole.count = range.first ? 1 : std::numeric_limits<std::int32_t>::max();
  if (!range.first) whole.first = 1;
  Strings words = {"-o", "NewTask", "-j", jobFile_};
  for (const std::string& word : options(whole)) words.push_back(word);
  const ProcessResult result = run(programs().adapter, words);
  AdapterRun request;
  request.output = result.output;
  request.error = result.error;
  request.status = describeStatus(result.waitStatus);
  request.announced = announcedIn(result.output);
  request.children = childrenIn(readFile(base_.file("record")));
  // If a tool runs the adapter, the library is loaded into the tool.
  if (std::getenv("RUNLET_TEST_WRAPPER") == nullptr) {
    request.shellCommands = endedByNul(readFile(base_.file("commands")));
  }
  return request;
}

ProcessResult Scene::runTool(const Strings& words, const Range& range) const {
  Strings all = words;
  all.push_back(jobFile_);
  for (const std::string& word : options(range)) all.push_back(word);
  return run(programs().tool, all);
}

std::string Scene::fullJobFile() const {
  return jobFile_.empty() || jobFile_[0] == '/' ? jobFile_ : folder_ + "/" + jobFile_;
}

Strings Scene::applicationOption() const {
  return appPath_.empty() ? Strings() : Strings{"-a", appPath_};
}

TaskRun Scene::runTaskByAdapter(std::int32_t number) const {
  Strings words = {"-o", "NewTask", "-j", fullJobFile(), "-s", std::to_string(number)};
  for (const std::string& word : applicationOption()) words.push_back(word);
  const bool isRoot = geteuid() == 0 && !case_.isUnprivileged;
  if (!isRoot) words.insert(words.end(), {"-u", "anybody"});
  ProcessOptions options = program(programs().adapter, words);
  if (!isRoot) options.environment.emplace_back("RUNLET_ID_RECORD", base_.file("ids"));
  return runTask(options);
}

TaskRun Scene::runTaskByExec(std::int32_t number) const {
  Strings words = {"exec", "--task", std::to_string(number)};
  // For the recorder and the spy, also in a task of another user.
  for (const char* name :
       {"RUNLET_RECORD", "RUNLET_SHELL_RECORD", "RUNLET_GROUNDS", "LLVM_PROFILE_FILE"}) {
    words.insert(words.end(), {"--keep-env", name});
  }
  for (const std::string& word : applicationOption()) words.push_back(word);
  words.insert(words.end(), {"--", jobFile_});
  return runTask(program(programs().tool, words));
}

TaskRun Scene::runTask(const ProcessOptions& options) const {
  for (const char* name : {"record", "commands", "ids"}) base_.write(name, "", 0666);
  const std::map<std::string, unsigned> before = modes();
  TaskRun task;
  task.result = runProcess(options);
  task.children = childrenIn(readFile(base_.file("record")));
  task.shellCommands = endedByNul(readFile(base_.file("commands")));
  std::istringstream ids(readFile(base_.file("ids")));
  for (std::string line; std::getline(ids, line);) {
    if (const auto id = valueOf("group ", line)) task.group = std::stoi(*id);
    if (const auto id = valueOf("user ", line)) task.user = std::stoi(*id);
  }
  task.modes = modes();
  for (const auto& [path, mode] : before) {
    if (task.modes[path] != mode) chmod(path.c_str(), mode);
  }
  return task;
}

std::map<std::string, unsigned> Scene::modes() const {
  std::map<std::string, unsigned> modes;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(base_.path())) {
    modes[entry.path()] = static_cast<unsigned>(modeOf(entry.path()));
  }
  return modes;
}

std::string Scene::description() const {
  std::ostringstream out;
  out << "--- in " << folder_ << (case_.isUnprivileged ? ", as another user" : "") << ": -j '"
      << visibleLines(jobFile_) << "'";
  for (const std::string& word : options({})) out << " '" << visibleLines(word) << "'";
  out << "\n--- modes: job file " << std::oct << case_.jobMode << ", recorder "
      << case_.recorderMode << "\n";
  for (const char* name : {"script", "bin/script", "bin/plain", "closed/secret"}) {
    out << "--- " << name << ": " << visibleLines(readFile(folder_ + "/" + name)) << "\n";
  }
  out << "--- " << case_.jobPath << ":\n" << visibleLines(case_.jobText) << "\n";
  return out.str();
}

}  // namespace runlet_test
