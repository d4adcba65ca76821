#include <gtest/gtest.h>

#include "process.h"
#include "tool/text/quoting.h"

namespace runlet_test {
namespace {

std::string quoted(const std::string& word, const std::string& inFront = "run") {
  std::string line = inFront;
  runlet_tool::appendShellWord(word, &line);
  return line.substr(inFront.empty() ? 0 : inFront.size() + 1);
}

TEST(ShellQuote, IsAsPlainAsPossible) {
  struct Row {
    std::string word;
    std::string expected;
  };
  const Row rows[] = {
      {"/usr/bin/render", "/usr/bin/render"},
      {"-a_b@c%d+e:f,g.h", "-a_b@c%d+e:f,g.h"},
      {"", "''"},
      {"a b", "'a b'"},
      {"it's", "'it'\\''s'"},
      {"$HOME", "'$HOME'"},
      {"a=b", "'a=b'"},
      {"~", "'~'"},
      {"f\xc3\xbcr", "'f\xc3\xbcr'"},
      {"a\tb", "$'a\\011b'"},
      {"a\n'\\7", "$'a\\012\\047\\1347'"},
      {"\xc3\xbc\x7f", "$'\xc3\xbc\\177'"},
      {"\xff!", "$'\\377!'"},
      {"if", "if"},
  };
  for (const Row& row : rows) EXPECT_EQ(quoted(row.word), row.expected) << row.word;
}

TEST(ShellQuote, KeepsReservedWordsFromBeginningACommand) {
  EXPECT_EQ(quoted("if", ""), "'if'");
  EXPECT_EQ(quoted("time", ""), "'time'");
  EXPECT_EQ(quoted("timer", ""), "timer");
}

// Every byte, alone and next to others, passes through a shell unchanged.
TEST(ShellQuote, IsReadBackByTheShell) {
  std::vector<std::string> words = {"",  "'",    "''", "\\",    "a'b\tc",
                                    "!", "!!\n", "-n", "$(id)", "`id`"};
  for (int byte = 1; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    words.insert(words.end(), {text, "x" + text + "7", text + text});
  }
  std::string command = "printf '%s\\0'";
  std::string expected;
  for (const std::string& word : words) {
    runlet_tool::appendShellWord(word, &command);
    expected += word + '\0';
  }
  ProcessOptions options;
  options.arguments = {"/bin/bash", "-c", command};
  const ProcessResult result = runProcess(options);
  EXPECT_EQ(result.output, expected);
  EXPECT_EQ(result.error, "");
}

}  // namespace
}  // namespace runlet_test
