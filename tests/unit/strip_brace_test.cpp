#include "job/strip_brace.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace runlet {
namespace {

constexpr char before[] = "as it was";

std::string inBraces(const std::string& text) {
  std::string source = "{";
  return source.append(text).append("}");
}

// Rows for both forms; null = refused.
const struct {
  const char* source;
  const char* stripped;
} rows[] = {
    {"{abc}", "abc"},
    {"{ }", " "},
    {"{x}", "x"},
    {"pre{a}post", "a"},
    {"x{a{b}c}y", "a{b}c"},
    {"{a}{b}", "a}{b"},
    {"{{}}", "{}"},
    {"{{}", "{"},
    {"{}}", "}"},
    {"{a\tb  c\n}", "a\tb  c\n"},
    {"pre {cmd {a} b} post", "cmd {a} b"},
    {"{}", nullptr},
    {"", nullptr},
    {"abc", nullptr},
    {"{abc", nullptr},
    {"abc}", nullptr},
    {"{", nullptr},
    {"}", nullptr},
    {"()", nullptr},
};

TEST(StripBrace, StringFormKeepsTheTextBetweenTheBraces) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.source);
    std::string destination = before;
    EXPECT_EQ(stripBrace(row.source, &destination), row.stripped != nullptr);
    EXPECT_EQ(destination, row.stripped != nullptr ? row.stripped : before);
  }
}

TEST(StripBrace, StringFormHasNoLimit) {
  const std::string text(100000, 'x');
  std::string destination;
  EXPECT_TRUE(stripBrace(inBraces(text).c_str(), &destination));
  EXPECT_EQ(destination, text);
}

TEST(StripBrace, StringFormThrowsALengthErrorForReversedBraces) {
  for (const char* source : {"}x{", "a}b{c", "}xx{", "} {"}) {
    SCOPED_TRACE(source);
    std::string destination = before;
    EXPECT_THROW(stripBrace(source, &destination), std::length_error);
    EXPECT_EQ(destination, before);
  }
}

// "}{" is as empty as "{}", but its length is -2.
TEST(StripBrace, StringFormThrowsALengthErrorForAdjacentReversedBraces) {
  std::string destination;
  EXPECT_THROW(stripBrace("}{", &destination), std::length_error);
}

TEST(StripBrace, BufferFormKeepsTheTextBetweenTheBraces) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.source);
    char destination[maxStrippedLength + 1] = "as it was";
    EXPECT_EQ(stripBrace(row.source, destination), row.stripped != nullptr);
    EXPECT_STREQ(destination, row.stripped != nullptr ? row.stripped : before);
  }
}

TEST(StripBrace, BufferFormTakesUpTo255Bytes) {
  for (const std::size_t length : {1U, 254U, 255U}) {
    SCOPED_TRACE(length);
    const std::string text(length, 'x');
    std::string area(257, '#');  // the last byte is past the caller's buffer
    EXPECT_TRUE(stripBrace(inBraces(text).c_str(), area.data()));
    EXPECT_EQ(area.substr(0, length), text);
    EXPECT_EQ(area[length], '\0');
    EXPECT_EQ(area.substr(length + 1), std::string(256 - length, '#'));
  }
  for (const std::size_t length : {256U, 257U, 1000U}) {
    SCOPED_TRACE(length);
    std::string area(257, '#');
    EXPECT_FALSE(stripBrace(inBraces(std::string(length, 'x')).c_str(), area.data()));
    EXPECT_EQ(area, std::string(257, '#'));
  }
}

TEST(StripBrace, BufferFormRefusesReversedBraces) {
  for (const char* source : {"}x{", "}{", "a}b{c"}) {
    SCOPED_TRACE(source);
    char destination[maxStrippedLength + 1] = "as it was";
    EXPECT_FALSE(stripBrace(source, destination));
    EXPECT_STREQ(destination, before);
  }
}

}  // namespace
}  // namespace runlet
