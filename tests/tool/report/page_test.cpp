// The page about a batch.

#include "tool/report/page.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "batch_record.h"
#include "process.h"
#include "programs.h"
#include "temp_folder.h"
#include "tool/report/page_style.h"

namespace runlet_test {
namespace {

using runlet_tool::Attempt;
using runlet_tool::Ending;
using runlet_tool::Overview;
using runlet_tool::Record;
using runlet_tool::Session;
using runlet_tool::TaskEnd;

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

class Page : public testing::Test {
 protected:
  Page() {
    setenv("TZ", "UTC", 1);
    tzset();
    record_.id = "20261122-211530-3f2a";
  }

  std::string page() const {
    Record record = record_;
    for (Session& session : record.sessions) {
      // That of the folder of the logs.
      session.uid = static_cast<std::int32_t>(geteuid());
      session.gid = static_cast<std::int32_t>(getegid());
    }
    return reportPage(overviewOf(record, false, batchBegin + 9, 10));
  }

  // Asserts that the page is XML, loads nothing and runs nothing.
  void expectHarmless(const std::string& text) const {
    ProcessOptions options;
    options.arguments = {"/usr/bin/xmllint", "--nonet", "--noout", folder_.write("page", text)};
    const ProcessResult result = runProcess(options);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    for (const char* part : {"<script", "<img", "<link", "<iframe", "<a ", "@import"}) {
      EXPECT_EQ(countOf(text, part), 0U) << part;
    }
    // No tag has an attribute that loads or runs anything; all other "<" are escaped.
    for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos; ++at) {
      const std::string tag = text.substr(at, text.find('>', at) - at);
      for (const char* name : {" src=", " href=", " onerror=", " onload=", " onclick="}) {
        EXPECT_EQ(tag.find(name), std::string::npos) << tag;
      }
    }
    EXPECT_EQ(countOf(text, "url("), countOf(text, "url(#hatch)"));
  }

  TempFolder folder_;
  Record record_;
};

TEST_F(Page, IsComplete) {
  record_.sessions = {finishedSession(0, 10, 3)};
  record_.attempts = {endedAttempt(1, 0, 4), endedAttempt(2, 0, 10),
                      endedAttempt(3, 4, 6, {Ending::failed, 3, ""})};
  record_.attempts[2].log = folder_.write("3.log", "one\ntwo <&>\n");
  std::string text = page();
  expectHarmless(text);
  text.erase(text.find(runlet_tool::pageStyle), runlet_tool::pageStyle.size());
  text.replace(text.find(folder_.path()), folder_.path().size(), "FOLDER");
  EXPECT_EQ(text, readFile(std::string(sourceFolder) + "/tests/tool/report/page.html"));
}

TEST_F(Page, OfABatchWithoutAttemptsHasNoCharts) {
  record_.sessions = {finishedSession(0, 10, 3)};
  record_.sessions[0].tasks.clear();
  record_.sessions[0].identities.clear();
  const std::string text = page();
  expectHarmless(text);
  EXPECT_EQ(countOf(text, "<h2>"), 1U);
  EXPECT_EQ(countOf(text, "<svg"), 0U);
}

TEST_F(Page, IsHarmlessWhateverTheRecordSays) {
  const std::string hostile =
      "</title></style><script>alert(1)</script><img src=x onerror=\"y\">'\"&]]><!--\033\x01\xff"
      "\xe2\x80\xae\xef\xbf\xbe\xef\xbf\xbf\xc2\x9b\n" +
      std::string(1, '\0') + std::string(99'999, '<');
  record_.sessions = {finishedSession(0, 10, 2), finishedSession(20, 30, 2)};
  for (Session& session : record_.sessions) {
    session.options = {hostile, hostile};
    session.stopReason = session.toolVersion = session.verb = session.job = hostile;
    session.folder = session.process.host = hostile;
  }
  record_.attempts = {endedAttempt(1, 0, 4, {Ending::other, 0, hostile}), endedAttempt(2, 0, 10)};
  for (Attempt& attempt : record_.attempts) {
    attempt.words = {hostile, hostile};
    attempt.log = folder_.write("log", hostile + "\n" + hostile.substr(0, 100));
  }
  const std::string text = page();
  expectHarmless(text);
  EXPECT_LT(text.size(), 60'000U);
  EXPECT_NE(text.find("&lt;script&gt;alert(1)&lt;/script&gt;"), std::string::npos);
  record_.attempts[0].log = hostile;
  expectHarmless(page());
}

// As many as can be of everything, with texts that grow as much as possible.
TEST_F(Page, IsSmallHoweverLargeTheBatchIs) {
  constexpr std::int32_t count = 100'000;
  const std::string quotes(4000, '"');
  const std::string log = folder_.write("log", std::string(1000, '"') + "\n" + quotes);
  record_.sessions = {finishedSession(0, 1, count)};
  for (int i = 1; i < 300; ++i) {
    Session session = finishedSession(i * 10, i * 10 + 9, 1);
    session.options = {quotes};
    session.stopReason = session.job = session.folder = session.process.host = quotes;
    record_.sessions.push_back(session);
  }
  record_.sessions.push_back(finishedSession(4000, 9000, count));
  for (std::int32_t task = 1; task <= count; ++task) {
    const bool isFine = task % 2 == 0;
    Attempt attempt = endedAttempt(
        task, 4000 + task % 5000, task % 70,
        isFine ? TaskEnd{Ending::succeeded, 0, ""} : TaskEnd{Ending::other, 0, quotes});
    attempt.session = 300;
    attempt.words.push_back(quotes);
    attempt.log = log;
    record_.attempts.push_back(attempt);
  }
  const std::string large = page();
  expectHarmless(large);
  EXPECT_LT(large.size(), 2'000'000U);
  EXPECT_NE(large.find(" failures not shown.</p>"), std::string::npos);
  EXPECT_NE(large.find("251 earlier sessions not shown."), std::string::npos);
  EXPECT_NE(large.find("Only the last 50 of 301 sessions are shown."), std::string::npos);
  // With 2,000 attempts, each of them is drawn.
  record_.attempts.resize(2000);
  const std::string drawn = page();
  expectHarmless(drawn);
  EXPECT_LT(drawn.size(), 2'000'000U);
  EXPECT_EQ(countOf(drawn, "</title></rect>"), 2000U);
}

TEST_F(Page, FoldsAllButAFewFailures) {
  const struct {
    std::int32_t failures;
    const char* summary;
    const char* note;
    std::size_t rows;
  } rows[] = {
      {20, "", "", 20},
      {21, "<summary>1 more failure</summary>", "", 21},
      {1000, "<summary>980 more failures</summary>", "", 1000},
      {1001, "<summary>980 more failures</summary>", "<p class=\"note\">1 failure not shown.</p>",
       1000},
  };
  for (const auto& row : rows) {
    record_.sessions = {finishedSession(0, 10, row.failures)};
    record_.attempts.clear();
    for (std::int32_t task = 1; task <= row.failures; ++task) {
      record_.attempts.push_back(endedAttempt(task, 0, 1, {Ending::failed, 1, ""}));
    }
    const std::string text = page();
    EXPECT_EQ(countOf(text, "<td class=\"end\">"), row.rows);
    EXPECT_EQ(countOf(text, "<details>"), *row.summary == '\0' ? 0U : 1U);
    EXPECT_NE(text.find(row.summary), std::string::npos) << row.summary;
    EXPECT_NE(text.find(row.note), std::string::npos) << row.note;
    EXPECT_EQ(countOf(text, "not shown"), *row.note == '\0' ? 0U : 1U);
  }
}

}  // namespace
}  // namespace runlet_test
