#include "job/nesting.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <random>
#include <string>

#include "job/job_text.h"

namespace runlet {
namespace {

using namespace std::string_literals;

constexpr std::size_t noLimit = 1000000;

// How deep the library itself gets, whether or not it finds an error in the end.
std::size_t depthOf(const TiXmlNode& node) {
  std::size_t deepest = 0;
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    deepest = std::max(deepest, depthOf(*child));
  }
  return deepest + (node.ToElement() != nullptr ? 1 : 0);
}

struct Parsed {
  std::size_t depth;
  bool loaded;
};

std::string prepared(std::string bytes) {
  prepareText(&bytes);
  return bytes;
}

Parsed parse(const std::string& text) {
  std::FILE* stream = openText(text);
  TiXmlDocument document;
  const bool loaded = document.LoadFile(stream, TIXML_ENCODING_UTF8);
  std::fclose(stream);
  return {depthOf(document), loaded};
}

TEST(Nesting, FollowsTheLibrary) {
  const struct {
    std::string bytes;
    std::size_t depth;
  } rows[] = {
      {"", 0},
      {"text", 0},
      {"text<a>", 0},
      {"<a/>", 1},
      {"<a/><b><c/></b>", 2},
      {"<a><b></b><c></c></a>", 2},
      {"<a><b><c/></b></a>", 3},
      {"<a><b/><c/></a>", 2},
      {"<a >t<b\n>t<c />t</b >t</a\t>", 3},
      {"<a b='<x>' c=\"<x>'\"><d/></a>", 2},
      {"<a b=c/><x>", 1},
      {"<a b=c>d</a><x/>", 1},
      {"<a><b c", 2},
      {"<a><b c d='<e>", 2},
      {"<!-- <x><y><z> --><a/>", 1},
      {"<!--><x><y>--><a/>", 1},
      {"<a><![CDATA[<x><y>]]]><b/></a>", 2},
      {"<!DOCTYPE x [ <!ENTITY y> ]><a/>", 0},
      {"<!x><?y z?><a/>", 1},
      {"<?xml version='>' b ENCODING=\"<x>\"?><a/>", 1},
      {"<?XML <x><y/>", 1},
      {"<a><?xml version='</a>'?><b/></a>", 2},
      {"</a><b/>", 1},
      {"\xef\xbb\xbf <a>\xef\xbf\xbe<b/></a>", 2},
      {"<\xc3\xa9><_/></\xc3\xa9>", 2},
      {"<1><a/>", 1},
      {"< a><b/>", 1},
      {"<a>&#65;&lt;&x;<b/></a>", 2},
      // an end tag that the library does not see
      {"<a>\xf0</a>x<b/></a>", 2},
      {"<a>\xf0\r\n<b><c/></a>", 2},
      {"<a>&#x</a><b>x41;<c/></a>", 2},
      {"<a>&#1</a>#65;<c/></a>", 2},
      {"<a b='\xf0'/>'><c/></a>", 2},
      {"<a b='&#1'/>#65;'><c/></a>", 2},
      {"<a><!b</a>", 1},
      // an end of the text that it would run over
      {"<a>\0<b><c>"s, 1},
      {"<a>\xf0\0<b><c><d>"s, 1},
      {"<a>\xe2\0<b><c><d>"s, 1},
      {"<a>\xc3\0<b><c><d>"s, 1},
      {"<a b='\xf0\0'><b><c><d>"s, 1},
      {"<a>\r\n\r\n\r\n\r\n<b><c>\xc3", 3},
      {"<a>\r\n\r\n\r\n\r\n<!--<b><c><d>-->\xc3", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.bytes));
    const std::string text = prepared(row.bytes);
    EXPECT_EQ(deepestNesting(text.c_str(), noLimit), row.depth);
    EXPECT_EQ(parse(text).depth, row.depth);
  }
}

TEST(Nesting, StopsCountingAboveEnough) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += "<a>";
  EXPECT_EQ(deepestNesting(text.c_str(), 100), 100U);
  EXPECT_EQ(deepestNesting(text.c_str(), 99), 100U);
  EXPECT_EQ(deepestNesting(text.c_str(), 10), 11U);
  EXPECT_EQ(deepestNesting(text.c_str(), 0), 1U);
}

// Text made of pieces that mean something to the parser, so that many of them are well-formed.
std::string randomText(std::mt19937* random) {
  static const std::string pieces[] = {
      "<a>",          "<a>",    "<b>",       "</a>", "</a>", "</b>",
      "<a/>",         "<a b='", "<a b=\"",   "'",    "\"",   ">",
      "/>",           "<",      "/",         " ",    "t",    "=",
      "&#",           "&#x",    "x41;",      "#65;", ";",    "&lt;",
      "<!--",         "-->",    "<![CDATA[", "]]>",  "<!x",  "<?xml ",
      "version",      "?>",     "\xf0",      "\xc3", "\xe2", "\xef\xbb\xbf",
      "\xef\xbf\xbf", "\xef",   "\r\n",      "\r",   "\n",   "\x7f",
      "\xff",         "-",      "]",         "\0"s,
  };
  std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);
  std::uniform_int_distribution<int> length(1, 40);
  std::string text = "<a>";
  for (int left = length(*random); left > 0; --left) text += pieces[pick(*random)];
  return text;
}

// What is refused must not depend on luck: never less than the library's depth, and the very
// same for text that it accepts.
TEST(Nesting, IsNeverLessThanTheLibrarysOnRandomText) {
  constexpr unsigned seed = 20231;
  std::mt19937 random(seed);
  int accepted = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::string text = prepared(randomText(&random));
    const std::size_t counted = deepestNesting(text.c_str(), noLimit);
    const Parsed parsed = parse(text);
    if (parsed.loaded) ++accepted;
    const bool ok = parsed.loaded ? counted == parsed.depth : counted >= parsed.depth;
    ASSERT_TRUE(ok) << "case " << i << " of seed " << seed << ": counted " << counted
                    << ", library " << parsed.depth << ", text " << testing::PrintToString(text);
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace runlet
