// What looks like a fault but is not.

#include <pwd.h>
#include <unistd.h>

#include "findings.h"

namespace runlet_test {
namespace {

struct Change {
  const char* from;
  const char* to;
};

class CleanJobs : public Findings {
 protected:
  // Asserts that nothing is found in a good job with these changes, and that the adapter runs it.
  void expectClean(const std::vector<Change>& changes) {
    std::string text = readFile(samplesFolder() + "/RJ001/fixed.xml");
    for (const Change& change : changes) {
      const std::size_t at = text.find(change.from);
      ASSERT_NE(at, std::string::npos) << change.from;
      text.replace(at, std::string(change.from).size(), change.to);
    }
    SCOPED_TRACE(text);
    expectCleanText(text);
  }

 private:
  void expectCleanText(const std::string& text) {
    given_[fixed] = text;
    expectCheck(fixed, {});
    const ProcessResult result = runTasks(fixed);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    EXPECT_NE(withoutPids(result.output).find(processStarted), std::string::npos);
  }
};

TEST_F(CleanJobs, MayHaveCommentsBetweenElements) {
  expectClean({{"<cmdData>", "<!-- of a test --><cmdData><!-- what to run -->"}});
  expectClean({{"<Task>", "<!-- the first --><Task><!-- its fields -->"}});
  expectClean({{"</Task>", "</Task><!-- no more tasks -->"}});
  expectClean({{"<TaskList>", "<!--JobParams--><TaskList>"}});
  expectClean({{"<JobParams/>", "<JobParams><!-- none --></JobParams>"}});
  expectClean({{"</Job>", "</Job><!-- the end -->"}});
}

// No text is lost.
TEST_F(CleanJobs, MayHaveACommentAfterAText) {
  expectClean({{"18", "18<!-- octal 022 -->"}});
  expectClean({{"%tn}", "%tn}<!-- the number -->"}});
}

TEST_F(CleanJobs, MayHaveSpaceAroundATextAndItsBraces) {
  expectClean({{"18", " 18 "}});
  expectClean({{"{/bin/echo %tn}", "\n      {/bin/echo %tn}\n    "}});
  expectClean({{"{dawn}", "\n        {dawn}\n      "}});
}

TEST_F(CleanJobs, MayHaveFlagsInAllUsualWords) {
  for (const std::string flag : {"yes", "Yes", "y", "true", "True", "1", "no", "No", "n", "false",
                                 "f", "0", "off", "keep"}) {
    const std::string element = "<redirectStderr>" + flag + "</redirectStderr><umask>";
    expectClean({{"<umask>", element.c_str()}});
  }
}

TEST_F(CleanJobs, MayHaveNumbersInTheirWholeRange) {
  for (const char* minutes : {"1", "35791"}) expectClean({{"30", minutes}});
  for (const char* mask : {"0", "63", "511"}) expectClean({{"18", mask}});
}

TEST_F(CleanJobs, MayHaveEmptyValuesThatAreWrittenSo) {
  expectClean({{"%tn", "[%jp1]"},
               {"<JobParams/>",
                "<JobParams><Param><Name>{a}</Name><Value>{}</Value></Param></JobParams>"}});
}

TEST_F(CleanJobs, MayHaveFieldsThatAreWrittenAsTheyArrive) {
  expectClean({{"%tn", "[%tp2]"}, {"dawn", "dawn&#9;&#9;12"}});
  expectClean({{"%tn", "[%tp2]"}, {"{dawn}", "<![CDATA[{dawn\t12}]]>"}});
  expectClean({{"%tn", "\"%tp1\""}, {"dawn", "dawn&#32;&#32;light"}});
}

TEST_F(CleanJobs, MayHavePlaceholdersOfEveryKind) {
  expectClean({{"%tn", "%tn %tn 100%% %tp1 %tp01"}});
  expectClean({{"%tn", "%4tn %tp1 %tn"}});
  expectClean({{"%tn", "%6tp1_%2tn"}});
  expectClean({{"%tn", "%31tn"}});
}

// The shell interprets what the adapter does not.
TEST_F(CleanJobs, MayPassALineToAShell) {
  expectClean({{"/bin/echo %tn", "/bin/sh -c \"echo $HOME | cat &gt; /dev/null\""}});
}

TEST_F(CleanJobs, MayHaveQuotedAndEmptyWords) {
  expectClean({{"%tn", "\"dawn light\" \"\" \"%tn\""}});
}

TEST_F(CleanJobs, MayBeForAnApplication) {
  folder_.makeFolder("tools");
  writeScript("tools/render", "#!/bin/sh\necho \"$@\"\n");
  options_ = {"-a", folder_.file("tools/app")};
  expectClean({{"/bin/echo", "render"}});
  expectClean({{"/bin/echo %tn", "render&#32;"}});
}

TEST_F(CleanJobs, MayTakeTheirUserFromItsName) {
  const passwd* self = getpwuid(geteuid());
  if (self == nullptr) GTEST_SKIP() << "this user has no name";
  options_ = {"-u", self->pw_name};
  expectClean({{"<uid>1000</uid>", ""}});
}

}  // namespace
}  // namespace runlet_test
