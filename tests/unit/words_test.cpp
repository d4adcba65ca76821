#include "exec/words.h"

#include <gtest/gtest.h>

#include <string>

namespace runlet {
namespace {

std::vector<std::string> split(std::string line) {
  const std::vector<char*> words = splitWords(line.data());
  EXPECT_FALSE(words.empty());
  EXPECT_EQ(words.back(), nullptr);
  return {words.begin(), words.end() - 1};
}

TEST(Words, AreSeparatedBySpacesAndGroupedByQuotes) {
  using Words = std::vector<std::string>;
  const struct {
    const char* line;
    Words words;
  } rows[] = {
      {"/bin/echo a  b", {"/bin/echo", "a", "b"}},
      {R"(tool "a b" c)", {"tool", "a b", "c"}},
      {R"(tool "a b"c)", {"tool", "a b", "c"}},
      {R"(tool a"b c")", {"tool", R"(a"b)", R"(c")"}},
      {R"(tool "a b)", {"tool"}},
      {R"(tool "")", {"tool", ""}},
      {"tool\targ", {"tool\targ"}},
      {"tool \t arg", {"tool", "\t", "arg"}},
      {"", {}},
      {"   ", {}},
      {" a ", {"a"}},
      {"a", {"a"}},
      {R"(")", {}},
      {R"("")", {""}},
      {R"("" "")", {"", ""}},
      {R"("a""b")", {"a", "b"}},
      {R"("a"b"c d")", {"a", R"(b"c)", R"(d")"}},
      {R"("a b" "c)", {"a b"}},
      {R"(tool "a b c d)", {"tool"}},
      {R"(tool a" b)", {"tool", R"(a")", "b"}},
      {R"(a\ b \"c\")", {"a\\", "b", R"(\"c\")"}},
      {R"('a b' $x `y` ;|&<>*)", {"'a", "b'", "$x", "`y`", ";|&<>*"}},
      {"a\nb\rc", {"a\nb\rc"}},
      {R"("  a  ")", {"  a  "}},
      {"\xc3\xa9 \xff", {"\xc3\xa9", "\xff"}},
  };
  for (const auto& row : rows) EXPECT_EQ(split(row.line), row.words) << row.line;
}

TEST(Words, AreUnlimitedInNumber) {
  std::string line;
  for (int i = 0; i < 20000; ++i) line += "w ";
  EXPECT_EQ(split(line), std::vector<std::string>(20000, "w"));
}

TEST(Words, PointIntoTheLine) {
  std::string line = R"(a "b c")";
  const std::vector<char*> words = splitWords(line.data());
  ASSERT_EQ(words.size(), 3U);
  EXPECT_EQ(words[0], line.data());
  EXPECT_EQ(words[1], line.data() + 3);
}

}  // namespace
}  // namespace runlet
