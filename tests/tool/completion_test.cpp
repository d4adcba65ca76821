// Completions of bash for the command line of runlet-job.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"
#include "programs.h"
#include "temp_folder.h"
#include "tool/check/rules.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

// Prints the completions of its last argument, one per line without duplicates, as bash shows them;
// the first argument is the completion script.
constexpr char script[] = R"(
set -u
source "$1"
shift
complete -p runlet-job >/dev/null || exit 1
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_runlet_job
((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort -u
)";

// A program that replaces runlet-job: the completed command may be any file, and must not be run.
constexpr char hostile[] = "#!/bin/sh\ntouch ran\n";

// One that replaces sinfo.
constexpr char threePartitions[] =
    "#!/bin/sh\n"
    "[ \"$*\" = '--noheader --format=%R' ] && printf 'farm\\nfast\\nnight\\n'\n";

// A folder with a few files and folders as completions.
class Completion : public testing::Test {
 protected:
  Completion() {
    folder_.write("dawn.xml", "");
    folder_.write("dusk light.xml", "");
    folder_.write("frames.tsv", "");
    folder_.write("old.jsonl", "");
    folder_.makeFolder("shots");
    folder_.makeFolder("shots/runlet-job");
    folder_.write("shots/runlet-job/20261122-211530-3f2a.jsonl", "");
    program_ = folder_.write("shots/runlet-job", hostile, 0755);
    setPartitions(threePartitions);
  }

  void setPartitions(const std::string& program) const {
    folder_.write("shots/sinfo", program, 0755);
  }

  // The completions for the last of `words`, which follow the program.
  std::string proposalsFor(const std::vector<std::string>& words) const {
    ProcessOptions options;
    options.arguments = {"/bin/bash", "--norc", "-c", script, "test", file(), program_};
    options.arguments.insert(options.arguments.end(), words.begin(), words.end());
    options.folder = folder_.path();
    options.environment = {{"PATH", folder_.file("shots") + ":/usr/bin:/bin"},
                           {"XDG_STATE_HOME", folder_.file("shots")}};
    const ProcessResult result = runProcess(options);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    return result.output;
  }

  // The current folder of the shell.
  std::set<std::string> filesInFolder() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  TempFolder folder_;

 private:
  static std::string file() {
    return std::string(sourceFolder) + "/share/bash-completion/completions/runlet-job";
  }

  std::string program_;
};

struct Row {
  std::vector<std::string> words;
  std::string proposals;
};

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += " '" + word + "'";
  return line;
}

std::set<std::string> linesOf(const std::string& text) {
  std::set<std::string> lines;
  std::istringstream rest(text);
  for (std::string line; std::getline(rest, line);) lines.insert(line);
  return lines;
}

const Row rows[] = {
    {{""},
     "--help\n--"
     "version\ncheck\nexec\nexpand\nexplain\nmake\nrecords\nreport\nrun\nschema\nsubmit\n"},
    {{"ex"}, "exec\nexpand\nexplain\n"},
    {{"--v"}, "--version\n"},
    {{"x"}, ""},
    {{"expand", ""}, "dawn.xml\ndusk light.xml\nshots\n"},
    {{"expand", "du"}, "dusk light.xml\n"},
    {{"expand", "-"}, "--help\n--json\n-a\n-n\n-s\n-u\n"},
    {{"expand", "dawn.xml", "--j"}, "--json\n"},
    {{"expand", "-s", ""}, ""},
    {{"expand", "-a", "f"}, "frames.tsv\n"},
    {{"expand", "-u", "roo"}, "root\n"},
    {{"check", "dawn.xml", ""}, "dawn.xml\ndusk light.xml\nshots\n"},
    {{"check", "--"}, "--all\n--expect\n--help\n--host\n--json\n--strict\n"},
    {{"check", "--strict", "d"}, "dawn.xml\ndusk light.xml\n"},
    {{"explain", "RJ00"}, "RJ001\nRJ002\nRJ003\nRJ004\nRJ005\nRJ006\nRJ007\nRJ008\nRJ009\n"},
    {{"explain", "RJ001", "RJ002"}, "RJ002\n"},
    {{"explain", "RJ1"}, ""},
    {{"explain", "-"}, "--help\n"},
    {{"schema", ""}, ""},
    {{"schema", "-"}, "--help\n"},
    {{"make", ""},
     "--\n--chunk\n--folder\n--frames\n--group\n--help\n--logs\n--outputs\n--param\n--stderr\n"
     "--tasks\n--timeout\n--umask\n--user\n-o\n"},
    {{"make", "--t"}, "--tasks\n--timeout\n"},
    {{"make", "--tasks", "f"}, "frames.tsv\n"},
    {{"make", "-o", "d"}, "dawn.xml\ndusk light.xml\n"},
    {{"make", "--folder", ""}, "shots\n"},
    {{"make", "--stderr", ""}, "join\nkeep\n"},
    {{"make", "--user", "roo"}, "root\n"},
    {{"make", "--group", "roo"}, "root\n"},
    {{"make", "--frames", ""}, ""},
    {{"make", "--", "no-such-progr"}, ""},
    {{"make", "--", "printen"}, "printenv\n"},
    {{"make", "--", "ls", "fr"}, "frames.tsv\n"},
    {{"make", "--", "ls", "--user", "fr"}, "frames.tsv\n"},
    {{"exec", ""}, "dawn.xml\ndusk light.xml\nshots\n"},
    {{"exec", "-"}, "--help\n--keep-env\n--task\n-a\n"},
    {{"exec", "--task", ""}, ""},
    {{"run", "du"}, "dusk light.xml\n"},
    {{"run", "-"},
     "--accept-changes\n--expect\n--failed-of\n--halt\n--help\n--jobs\n--json\n--keep-env\n"
     "--keep-logs\n"
     "--quiet\n--record\n--resume\n--retries\n--tasks\n--timeout\n-a\n-n\n-s\n"},
    {{"run", "--tasks", ""}, ""},
    {{"run", "--resume", ""}, "20261122-211530-3f2a\nlast\nold.jsonl\nshots\n"},
    {{"run", "--failed-of", "o"}, "old.jsonl\n"},
    {{"run", "--record", "f"}, "frames.tsv\n"},
    {{"run", "--expect", ""}, ""},
    {{"records", ""}, "list\nprune\n"},
    {{"records", "-"}, "--help\n"},
    {{"records", "list", "-"}, "--help\n--json\n"},
    {{"records", "list", ""}, ""},
    {{"records", "prune", ""}, "20261122-211530-3f2a\n"},
    {{"records", "prune", "-"}, "--dry-run\n--help\n--older-than\n"},
    {{"records", "prune", "--older-than", ""}, ""},
    {{"run", "--jobs", ""}, "auto\n"},
    {{"run", "--halt", ""}, "now\nsoon\n"},
    {{"run", "--keep-logs", ""}, "all\nfailed\n"},
    {{"run", "--retries", ""}, ""},
    {{"run", "--keep-env", ""}, ""},
    {{"submit", ""}, "dawn.xml\ndusk light.xml\nshots\n"},
    {{"submit", "-"},
     "--chunk\n--dry-run\n--failed-of\n--help\n--keep-env\n--partition\n--sbatch-option\n--"
     "throttle\n--wait\n"
     "-a\n-n\n-s\n"},
    {{"report", ""}, "20261122-211530-3f2a\nlast\nold.jsonl\nshots\n"},
    {{"report", "2"}, "20261122-211530-3f2a\n"},
    {{"report", "-"}, "--help\n--html\n--json\n--trace\n"},
    {{"report", "last", "--trace", "f"}, "frames.tsv\n"},
    {{"submit", "--throttle", ""}, ""},
    {{"submit", "--partition", "f"}, "farm\nfast\n"},
};

TEST_F(Completion, ProposesValidWords) {
  for (const Row& row : rows) {
    EXPECT_EQ(proposalsFor(row.words), row.proposals) << joined(row.words);
  }
}

// The words at the beginnings of the indented lines of a help text, after the line `heading`.
std::set<std::string> wordsOfHelp(const std::string& help, const std::string& heading) {
  std::set<std::string> words;
  std::istringstream lines(help.substr(std::min(help.find(heading + "\n"), help.size())));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line) && line.starts_with("  ")) {
    std::istringstream columns(line);
    std::string word;
    columns >> word;
    // After the short form the long one, which is the one to propose.
    if (line[2] != ' ') words.insert(word.substr(word.find(',') + 1));
  }
  return words;
}

// A new verb or option cannot be forgotten.
TEST_F(Completion, ProposesAllVerbsAndOptionsOfTheHelp) {
  const std::string help = runTool({"--help"}).output;
  const std::set<std::string> verbs = wordsOfHelp(help, "Subcommands:");
  EXPECT_EQ(verbs.size(), 10U);
  std::set<std::string> words = verbs;
  words.merge(wordsOfHelp(help, "Options:"));
  EXPECT_EQ(linesOf(proposalsFor({""})), words);
  for (const std::string& verb : verbs) {
    std::set<std::string> options = wordsOfHelp(runTool({verb, "--help"}).output, "Options:");
    if (verb == "make") options.insert("--");
    EXPECT_EQ(linesOf(proposalsFor({verb, "-"})), options) << verb;
  }
}

TEST_F(Completion, ProposesTheCodeOfEveryRule) {
  std::string codes;
  for (const runlet_tool::Rule& rule : runlet_tool::allRules()) codes += codeOf(rule) + "\n";
  EXPECT_EQ(proposalsFor({"explain", ""}), codes);
}

TEST_F(Completion, DoesNotRunTheProgram) {
  for (const Row& row : rows) proposalsFor(row.words);
  EXPECT_EQ(filesInFolder(), (std::set<std::string>{"dawn.xml", "dusk light.xml", "frames.tsv",
                                                    "old.jsonl", "shots"}));
}

// Inserted into the command line as text, without being evaluated by the shell.
TEST_F(Completion, TreatsTheOutputOfSinfoAsText) {
  setPartitions(
      "#!/bin/sh\n"
      "cat <<'end'\n"
      "$(touch one)\n"
      "`touch two`\n"
      "${x:=$(touch three)}\n"
      "fast; touch four\n"
      "*\n"
      "\n"
      "night\n"
      "end\n");
  EXPECT_EQ(proposalsFor({"submit", "--partition", ""}),
            "\\$\\(touch\\ one\\)\n"
            "\\$\\{x:=\\$\\(touch\\ three\\)\\}\n"
            "\\*\n"
            "\\`touch\\ two\\`\n"
            "fast\\;\\ touch\\ four\n"
            "night\n");
  EXPECT_EQ(proposalsFor({"submit", "--partition", "fa"}), "fast\\;\\ touch\\ four\n");
  EXPECT_EQ(proposalsFor({"submit", "--partition", "[fn]"}), "");
  EXPECT_EQ(filesInFolder(), (std::set<std::string>{"dawn.xml", "dusk light.xml", "frames.tsv",
                                                    "old.jsonl", "shots"}));
}

// readline quotes them.
TEST_F(Completion, TreatsFileNamesAsText) {
  folder_.write("$(touch one).xml", "");
  folder_.write("`touch two`.xml", "");
  folder_.makeFolder("$(touch three)");
  const std::set<std::string> files = filesInFolder();
  const std::string jobs = "$(touch one).xml\n$(touch three)\n`touch two`.xml\n";
  EXPECT_EQ(proposalsFor({"check", ""}), jobs + "dawn.xml\ndusk light.xml\nshots\n");
  for (const char* word : {"$", "`", "$(touch three)/", "$(touch o", "$((x[$(touch four)]))/"}) {
    EXPECT_EQ(proposalsFor({"check", word}), "");
    EXPECT_EQ(proposalsFor({"make", "--", "ls", word}), "");
  }
  EXPECT_EQ(filesInFolder(), files);
}

}  // namespace
}  // namespace runlet_test
