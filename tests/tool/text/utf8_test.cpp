#include <gtest/gtest.h>

#include "tool/text/characters.h"

namespace runlet_tool {
namespace {

TEST(Utf8, KnowsTheLengthOfACharacter) {
  struct Row {
    std::string text;
    std::size_t length;
  };
  const Row rows[] = {
      {"", 0},
      {"a", 1},
      {std::string(1, '\0'), 1},
      {"\x7f", 1},
      {"\x80", 0},
      {"\xc1\xbf", 0},  // overlong
      {"\xc2\x80", 2},
      {"\xdf\xbf!", 2},
      {"\xc3", 0},
      {"\xc3(", 0},
      {"\xe0\x9f\xbf", 0},  // overlong
      {"\xe0\xa0\x80", 3},
      {"\xe2\x82\xac", 3},
      {"\xe2\x82", 0},
      {"\xe2\x82(", 0},
      {"\xed\x9f\xbf", 3},
      {"\xed\xa0\x80", 0},  // a surrogate
      {"\xf0\x8f\xbf\xbf", 0},
      {"\xf0\x9f\x98\x80", 4},
      {"\xf4\x8f\xbf\xbf", 4},
      {"\xf4\x90\x80\x80", 0},  // beyond U+10FFFF
      {"\xf5\x80\x80\x80", 0},
      {"\xff", 0},
  };
  for (const Row& row : rows) EXPECT_EQ(utf8CharacterLength(row.text), row.length) << row.text;
}

TEST(Utf8, IsCheckedForAWholeText) {
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8("gr\xc3\xbc\xc3\x9f"));
  EXPECT_FALSE(isUtf8("gr\xfc\xdf"));
  EXPECT_FALSE(isUtf8("a\xc3"));
}

TEST(Utf8, HasACharacterForEveryByte) {
  EXPECT_EQ(bytesAsCharacters("a\x7f\x80\xff"), "a\x7f\xc2\x80\xc3\xbf");
}

}  // namespace
}  // namespace runlet_tool
