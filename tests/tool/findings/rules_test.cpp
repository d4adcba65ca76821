// The list of all findings: each has a test, samples, and an example that shows it.

#include "tool/check/rules.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

#include "findings.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

bool isCode(const std::string& text) {
  return text.size() == 5 && text.rfind("RJ", 0) == 0 &&
         std::all_of(text.begin() + 2, text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

Strings sorted(Strings codes) {
  std::sort(codes.begin(), codes.end());
  return codes;
}

// The codes at the beginning of each line of the list.
Strings explained() {
  Strings codes;
  std::istringstream lines(runTool({"explain"}).output);
  for (std::string line; std::getline(lines, line);) codes.push_back(line.substr(0, 5));
  return codes;
}

Strings tested() {
  Strings codes;
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      const std::string code = std::string(suite.GetTestInfo(j)->name()).substr(0, 5);
      if (isCode(code)) codes.push_back(code);
    }
  }
  return codes;
}

Strings sampled() {
  Strings codes;
  for (const auto& entry : std::filesystem::directory_iterator(samplesFolder())) {
    if (exists(entry.path() / "fixed.xml")) codes.push_back(entry.path().filename());
  }
  return codes;
}

// The list is sorted, and has each code once.
TEST(Rules, AllHaveATestAndASample) {
  const Strings codes = explained();
  EXPECT_TRUE(std::all_of(codes.begin(), codes.end(), isCode)) << testing::PrintToString(codes);
  EXPECT_EQ(sorted(tested()), codes);
  EXPECT_EQ(sorted(sampled()), codes);
}

// A job without findings, into which the lines of an example are inserted.
constexpr char jobOfExamples[] =
    "<Job>\n<cmdData>\n<Arguments>{/opt/render/bin/render -f %tp2 -l %tp3 %jp1}</Arguments>\n"
    "<WorkingFolder>/srv/shots</WorkingFolder>\n<TaskTimeout>90</TaskTimeout>\n<uid>1000</uid>\n"
    "<gid>1000</gid>\n<umask>18</umask>\n<redirectStderr>yes</redirectStderr>\n<TaskList>\n"
    "<Task><Params>{frames 1-10&#9;1&#9;10}</Params></Task>\n"
    "<Task><Params>{frames 11-20&#9;11&#9;20}</Params></Task>\n</TaskList>\n<JobParams>\n"
    "<Param><Name>{scene}</Name><Value>{lighthouse.scene}</Value></Param>\n</JobParams>\n"
    "</cmdData>\n</Job>\n";

// The lines after that label in the example of a rule, unindented.
Strings exampleLines(const runlet_tool::Rule& rule, const std::string& label) {
  std::istringstream lines(rule.explanation);
  std::string line;
  while (std::getline(lines, line) && line != label) {
  }
  Strings found;
  while (std::getline(lines, line) && line.starts_with("  ")) found.push_back(line.substr(2));
  return found;
}

// The name of the first element at the beginning of a line; empty if there is none.
std::string elementOf(const Strings& lines) {
  static const std::regex form("^<([A-Za-z]+)>");
  std::smatch match;
  for (const std::string& line : lines) {
    if (std::regex_search(line, match, form)) return match[1];
  }
  return "";
}

// The job with these lines in place of its own lines of that element, or at its beginning if it has
// none.
std::string jobWith(const Strings& lines, const std::string& element) {
  std::string piece;
  for (const std::string& line : lines) piece += line + "\n";
  const std::string tag = "<" + element + ">";
  std::string text = jobOfExamples;
  std::size_t at = text.find("\n" + tag);
  if (at == std::string::npos) at = text.find("\n", text.find("<cmdData>"));
  ++at;
  while (text.compare(at, tag.size(), tag) == 0) text.erase(at, text.find('\n', at) + 1 - at);
  return text.insert(at, piece);
}

class Examples : public Findings {
 protected:
  // The codes of the findings in a job with these lines of an example.
  std::string codesFor(Strings lines) {
    options_.clear();
    if (lines.front().starts_with("-a ")) {
      std::string path = lines.front().substr(3);
      std::erase(path, '"');
      options_ = {"-a", path};
      lines.erase(lines.begin());
    }
    const std::string element = elementOf(lines);
    const bool isWhole = element == "Job" || element == "cmdData";
    given_[bad].clear();
    for (const std::string& line : lines) given_[bad] += line + "\n";
    if (!isWhole) given_[bad] = jobWith(lines, element);
    return summaryOf(bad).codes;
  }
};

// Other examples show a command, something of the machine, or only a part of what is too long.
bool isAboutTheFile(const runlet_tool::Rule& rule, const Strings& lines) {
  const bool isAboutTheMachine = rule.id >= runlet_tool::RuleId::missingFolder;
  const bool isShort = rule.id == runlet_tool::RuleId::longEntry;
  return !isAboutTheMachine && !isShort && !lines.front().starts_with("runlet-job ");
}

TEST_F(Examples, OfTheRulesShowTheFindingAndHowToAvoidIt) {
  EXPECT_EQ(codesFor({"<umask>18</umask>"}), "");
  int count = 0;
  for (const runlet_tool::Rule& rule : runlet_tool::allRules()) {
    const Strings wrong = exampleLines(rule, "Wrong:");
    const Strings right = exampleLines(rule, "Right:");
    if (!isAboutTheFile(rule, wrong)) continue;
    ++count;
    const std::string code = codeOf(rule);
    EXPECT_NE(codesFor(wrong).find(code), std::string::npos) << code << "\n" << given_[bad];
    EXPECT_EQ(codesFor(right).find(code), std::string::npos) << code << "\n" << given_[bad];
  }
  EXPECT_GT(count, 50);
}

}  // namespace
}  // namespace runlet_test
