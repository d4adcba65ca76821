// What bash proposes for the command line of runlet-job.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "process.h"
#include "temp_folder.h"

namespace runlet_test {
namespace {

// Prints the proposals for its last argument, one a line and each once, as bash shows them; the
// first argument is the file of the completion.
constexpr char script[] = R"(
set -u
source "$1"
shift
complete -p runlet-job >/dev/null || exit 1
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_runlet_job
((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort -u
)";

// A program in place of runlet-job that knows two codes.
constexpr char twoCodes[] =
    "#!/bin/sh\n"
    "[ \"$*\" = explain ] && printf 'RJ001  one thing\\nRJ002  another\\n'\n";

// And one in place of the cluster's sinfo.
constexpr char threePartitions[] =
    "#!/bin/sh\n"
    "[ \"$*\" = '--noheader --format=%R' ] && printf 'farm\\nfast\\nnight\\n'\n";

// A folder with a few files and folders in it, to propose them.
class Completion : public testing::Test {
 protected:
  Completion() {
    folder_.write("dawn.xml", "");
    folder_.write("dusk light.xml", "");
    folder_.write("frames.tsv", "");
    folder_.makeFolder("shots");
    program_ = folder_.write("shots/runlet-job", twoCodes, 0755);
    folder_.write("shots/sinfo", threePartitions, 0755);
  }

  // What is proposed for the last of `words`, which stand behind the program.
  std::string proposalsFor(const std::vector<std::string>& words) const {
    return proposalsOf(program_, words);
  }

  std::string proposalsOf(const std::string& program, const std::vector<std::string>& words) const {
    ProcessOptions options;
    options.arguments = {"/bin/bash", "--norc", "-c", script, "test", file(), program};
    options.arguments.insert(options.arguments.end(), words.begin(), words.end());
    options.folder = folder_.path();
    options.environment = {{"PATH", folder_.file("shots") + ":/usr/bin:/bin"}};
    const ProcessResult result = runProcess(options);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    return result.output;
  }

 private:
  static std::string file() {
    return RUNLET_SOURCES "/share/bash-completion/completions/runlet-job";
  }

  TempFolder folder_;
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

const Row rows[] = {
    {{""}, "--help\n--version\ncheck\nexec\nexpand\nexplain\nmake\nrun\nschema\nsubmit\n"},
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
    {{"check", "--"}, "--help\n--host\n--json\n--strict\n"},
    {{"check", "--strict", "d"}, "dawn.xml\ndusk light.xml\n"},
    {{"explain", ""}, "RJ001\nRJ002\n"},
    {{"explain", "RJ001", "RJ002"}, "RJ002\n"},
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
    {{"run", "-"}, "--help\n--jobs\n--keep-env\n-a\n-n\n-s\n"},
    {{"run", "--jobs", ""}, ""},
    {{"run", "--keep-env", ""}, ""},
    {{"submit", ""}, "dawn.xml\ndusk light.xml\nshots\n"},
    {{"submit", "-"},
     "--chunk\n--dry-run\n--failed-of\n--help\n--partition\n--sbatch-option\n--throttle\n--wait\n"
     "-a\n-n\n-s\n"},
    {{"submit", "--throttle", ""}, ""},
    {{"submit", "--partition", "f"}, "farm\nfast\n"},
};

TEST_F(Completion, ProposesWhatMayStandThere) {
  for (const Row& row : rows) {
    EXPECT_EQ(proposalsFor(row.words), row.proposals) << joined(row.words);
  }
}

TEST_F(Completion, ProposesTheCodesOfTheProgramItself) {
  EXPECT_EQ(proposalsOf(RUNLET_JOB, {"explain", "RJ06"}),
            "RJ060\nRJ061\nRJ062\nRJ063\nRJ064\nRJ065\nRJ066\nRJ067\nRJ068\n");
}

}  // namespace
}  // namespace runlet_test
