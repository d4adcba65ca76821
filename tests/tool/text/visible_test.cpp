#include <gtest/gtest.h>

#include "tool/text/characters.h"

namespace runlet_test {
namespace {

TEST(VisibleText, HasNothingThatATerminalActsOn) {
  struct Row {
    std::string text;
    std::string expected;
  };
  const Row rows[] = {
      {"", ""},
      {"a plain text, f\xc3\xbcr alle \xe2\x82\xac \xf0\x9f\x90\x8c",
       "a plain text, f\xc3\xbcr alle \xe2\x82\xac \xf0\x9f\x90\x8c"},
      {std::string(1, '\0'), "\\x00"},
      {"\x1b[31m", "\\x1b[31m"},
      {"a\tb\nc\r", "a\\tb\\nc\\x0d"},
      {"\x1f \x7e\x7f", "\\x1f ~\\x7f"},
      {"\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0", "\\u0080\\u009b\\u009f\xc2\xa0"},
      {"\xd8\x9b\xd8\x9c\xd8\x9d", "\xd8\x9b\\u061c\xd8\x9d"},
      {"\xe2\x80\x8d\xe2\x80\x8e\xe2\x80\x8f\xe2\x80\x90",
       "\xe2\x80\x8d\\u200e\\u200f\xe2\x80\x90"},
      {"\xe2\x80\xa7\xe2\x80\xa8\xe2\x80\xa9\xe2\x80\xaa\xe2\x80\xae\xe2\x80\xaf",
       "\xe2\x80\xa7\\u2028\\u2029\\u202a\\u202e\xe2\x80\xaf"},
      {"\xe2\x81\xa5\xe2\x81\xa6\xe2\x81\xa9\xe2\x81\xaa",
       "\xe2\x81\xa5\\u2066\\u2069\xe2\x81\xaa"},
      {"\x9b", "\\x9b"},
      {"\xff\xc3", "\\xff\\xc3"},
      {"\xe2\x80", "\\xe2\\x80"},
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
      {"C:\\dir\\", "C:\\dir\\"},
      {"\\t\\n", "\\x5ct\\x5cn"},
      {"\\x1b\\x1B", "\\x5cx1b\\x5cx1B"},
      {"\\x1\\xg0", "\\x1\\xg0"},
      {"\\u202e\\U202e\\u202", "\\x5cu202e\\U202e\\u202"},
      {"\\\x1b\\\\t", "\\\\x1b\\\\x5ct"},
  };
  for (const Row& row : rows) EXPECT_EQ(runlet_tool::visible(row.text), row.expected);
}

TEST(VisibleText, KeepsItsLinesIfAskedTo) {
  EXPECT_EQ(runlet_tool::visibleLines("a\tb\n\x1b\r\n\n"), "a\\tb\n\\x1b\\x0d\n\n");
}

}  // namespace
}  // namespace runlet_test
