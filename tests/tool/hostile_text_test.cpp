// Untrusted text with control sequences never reaches the terminal.

#include <gtest/gtest.h>

#include <string_view>

#include "exec_run.h"
#include "fake_slurm.h"
#include "tool/text/characters.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

// ESC, carriage return, CSI in both forms, a right-to-left override, a line separator, DEL, and
// invalid UTF-8; and the subset that an XML file can hold.
const std::string hostile = "\x1b[31m\r\xc2\x9b\x9b\xe2\x80\xae\xe2\x80\xa8\x7f\xff\xc3";
const std::string hostileInXml = "\x1b[31m&#13;\xc2\x9b\xe2\x80\xae\xe2\x80\xa8\x7f";

// The first forbidden part found in the outputs; empty if there is none.
std::string forbiddenPartOf(const std::string& text) {
  if (!runlet_tool::isUtf8(text)) return "bytes that are not UTF-8";
  for (const char c : text) {
    if ((c >= '\0' && c < ' ' && c != '\n') || c == '\x7f') return std::to_string(int{c});
  }
  for (const char* const character : {"\xc2\x9b", "\xe2\x80\xae", "\xe2\x80\xa8"}) {
    if (text.find(character) != std::string::npos) return character;
  }
  return "";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

class HostileText : public ExecTest {
 protected:
  HostileText() {
    slurm_.reply("sbatch", "printf '%s\\n' \"$(printf '\\033]0;x\\007\\233')\" >&2\nexit 3");
  }

  // A job in which every text is hostile, in a file with a hostile name.
  std::string writeJob() {
    Job job;
    job.arguments = "/bin/true %tp1 %jp1 " + hostile;
    job.tasks = {"a" + hostileInXml};
    job.params = {{"NAME", "b"}, {"UNUSED", "c"}};
    job.set("WorkingFolder", "FOLDER").set("Other", "STRAY");
    std::string text = replaced(job.text(), "FOLDER", folder_.makeFolder(fileName_));
    text = replaced(text, "NAME", hostileInXml);
    text = replaced(text, "UNUSED", "un" + hostileInXml);
    text = replaced(text, "STRAY", hostileInXml);
    return folder_.write(fileName_ + ".xml", replaced(text, "&amp;#13;", "&#13;"));
  }

  ProcessResult runWords(const std::vector<std::string>& words) const {
    ProcessOptions options = tool(words);
    options.environment = {{"PATH", slurm_.path()}};
    return runProcess(options);
  }

  // Asserts the message for a harmless name, with the visible form of `name` in its place.
  void expectShown(const std::vector<std::string>& words, const std::string& name,
                   const std::string& shown, const std::string& status) const {
    std::vector<std::string> plain;
    std::vector<std::string> harmful;
    for (const std::string& word : words) {
      plain.push_back(replaced(word, "@", "QQ"));
      harmful.push_back(replaced(word, "@", name));
    }
    const ProcessResult expected = runWords(plain);
    const std::string all = expected.output + expected.error;
    EXPECT_NE(all.find("QQ"), std::string::npos) << all;
    expectTool(runWords(harmful), replaced(expected.output, "QQ", shown),
               replaced(expected.error, "QQ", shown), status);
  }

  const std::string fileName_ = "job" + hostile;
  FakeSlurm slurm_{folder_};
};

TEST_F(HostileText, ReachesNoTerminalThroughAnyVerb) {
  const std::string job = writeJob();
  const std::string none = folder_.file("none" + hostile);
  const std::vector<std::string> rows[] = {
      {"check", job},
      {"check", job, "-a", "/bin/" + hostile + "/x", "-u", hostile, "--host"},
      {"check", none},
      {"check", folder_.path(), none + "/x"},
      {"explain", hostile},
      {"expand", job},
      {"expand", job, "-a", "/bin/" + hostile + "/x"},
      {"expand", none},
      {"expand", job, "-s", hostile},
      {"run", job},
      {"run", job, "-s", "7"},
      {"run", none},
      {"submit", job},
      {"submit", job, "--dry-run", "--partition", hostile},
      {"submit", job, "--sbatch-option", hostile},
      {"submit", job, "--failed-of", hostile},
      {"exec", job, "--task", "9"},
      {"exec", none, "--task", "1"},
      {"exec", job, "--task", hostile},
      {"make", "--", "/bin/echo", hostile},
      {"make", "-o", folder_.file("made"), "--", "/bin/echo", "\xe2\x80\xae\xc2\x9b  b"},
      {"make", "-o", none + "/x", "--", "/bin/echo"},
      {"make", "--tasks", none, "--", "/bin/echo"},
      {"make", "--tasks", job, "--", "/bin/echo"},
      {"make", "--user", hostile, "--", "/bin/echo"},
      {"make", "--folder", hostile, "--frames", hostile, "--", "/bin/echo"},
      {"make", hostile, hostile, "--", "/bin/echo"},
      {"report", none + ".jsonl"},
      {"report", job + ".jsonl"},
      {"schema", hostile},
      {hostile},
      {"--" + hostile},
      {"check", job, "--" + hostile},
  };
  for (const std::vector<std::string>& row : rows) {
    const ProcessResult result = runWords(row);
    SCOPED_TRACE(testing::PrintToString(row));
    EXPECT_EQ(forbiddenPartOf(result.output), "") << result.output;
    EXPECT_EQ(forbiddenPartOf(result.error), "") << result.error;
    EXPECT_NE(result.output + result.error, "");
  }
}

TEST_F(HostileText, IsShownAsEscapes) {
  expectTool(runTool({"\x1b[2J"}), "",
             "runlet-job: unknown verb: \\x1b[2J\nSee: runlet-job --help\n", "exit 2");
  expectTool(runTool({"check", "--\xe2\x80\xae", "job.xml"}), "",
             "runlet-job: The following argument was not expected: --\\u202e\n"
             "See: runlet-job check --help\n",
             "exit 2");
  expectTool(runTool({"explain", "\xff"}), "", "runlet-job: explain: unknown code: \\xff\n",
             "exit 2");
  const std::string none = folder_.file("@.xml");
  expectShown({"check", none}, "\x1b\n", "\\x1b\\n", "exit 2");
  expectShown({"expand", none}, "\\n\x9b", "\\x5cn\\x9b", "exit 2");
  expectShown({"exec", none, "--task", "1"}, "\r", "\\x0d", "exit 125");
  expectShown({"run", none}, "\t", "\\t", "exit 2");
}

TEST_F(HostileText, OfACommandIsEscapedByExpandAndWrittenUnchangedByExec) {
  const std::string runFolder = folder_.makeFolder("a\x1b[2Jb");
  Job job;
  job.arguments = "/bin/echo \"x\xc2\x9b\"";
  job.set("WorkingFolder", runFolder);
  folder_.write("job.xml", job.text());
  const std::string shown = folder() + "/a\\x1b[2Jb";
  expectTool(runTool({"expand", jobFile_}),
             "task 1\n  folder  " + shown + "\n  Calling '/bin/echo \"x\\u009b\"' from '" + shown +
                 "'\n  run     /bin/echo $'x\\302\\233'\n",
             "", "exit 0");
  expectTool(become(), calling("/bin/echo \"x\xc2\x9b\"", runFolder) + "x\xc2\x9b\n", "", "exit 0");
}

// Each of them for the tasks that have it, also along with another one.
TEST_F(HostileText, IsFoundByItsCharacters) {
  Job job;
  job.arguments = "/bin/echo %tp1";
  job.tasks = {"a", "b\x1b\x1b", "c\xe2\x80\xae\x1b", "d\r"};
  job.set("TaskTimeout", "5");
  folder_.write("job.xml", job.text());
  const std::string text = runTool({"check", jobFile_}).output;
  const std::string rows[] = {"RJ040: \\x1b: @ [tasks 2-3]", "RJ040: \\u202e: @ [task 3]"};
  for (const std::string& tasks : rows) {
    const std::size_t part = tasks.find('@');
    const std::size_t begin = text.find(tasks.substr(0, part));
    ASSERT_NE(begin, std::string::npos) << text;
    const std::size_t end = text.find("\n", text.find("\n", begin) + 1);
    EXPECT_TRUE(text.substr(begin, end - begin).ends_with(tasks.substr(part + 1))) << text;
  }
}

TEST_F(HostileText, OfARefusalIsEscaped) {
  Job job;
  job.arguments = "/bin/echo %t\x1b";
  job.set("WorkingFolder", "a\x1b\xc2\x9b");
  job.tasks = {"1", "2"};
  folder_.write("job.xml", job.text());
  const ProcessResult result = runTool({"expand", jobFile_});
  EXPECT_EQ(result.output,
            "task 1\n  folder  a\\x1b\\u009b\n"
            "  refused: Runlet adapter: Process fill-in for arguments failed.\n"
            "  reason: \"%t\\x1b\" is not a placeholder: a %t must be followed by n or p\n"
            "\ntask 2\n  not reached: task 1 ended the request\n");
}

TEST_F(HostileText, OfAnotherProgramIsEscaped) {
  Job job;
  job.set("TaskTimeout", "5");
  job.arguments = "/bin/true";
  folder_.write("job.xml", job.text());
  const ProcessResult result = runWords({"submit", jobFile_});
  const std::string end =
      "\\x1b]0;x\\x07\\x9b\nrunlet-job: submit: sbatch failed with exit code 3\n";
  EXPECT_TRUE(result.error.ends_with(end)) << result.error;
  EXPECT_EQ(result.output, "");
}

}  // namespace
}  // namespace runlet_test
