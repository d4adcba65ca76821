#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tinyxml.h>

#include <algorithm>
#include <random>
#include <string>

#include "xml/guard.h"
#include "xml/limits.h"

namespace runlet {
namespace {

using namespace std::string_literals;

constexpr XmlCost noLimit = {1000000, 1000000, 1000000, 1000000};

std::size_t attributesOf(const TiXmlElement* element) {
  std::size_t count = 0;
  if (element == nullptr) return count;
  for (const TiXmlAttribute* attribute = element->FirstAttribute(); attribute != nullptr;
       attribute = attribute->Next()) {
    ++count;
  }
  return count;
}

// The cost of what the library has built, even if it found an error in the end; `level` is the
// number of elements around the children of `node`.
XmlCost builtBelow(const TiXmlNode& node, std::size_t level = 0) {
  const std::size_t attributes = attributesOf(node.ToElement());
  XmlCost cost = {0, attributes, attributes == 0 ? 0 : attributes * (attributes - 1) / 2, 0};
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    const XmlCost inner = builtBelow(*child, level + (child->ToElement() != nullptr ? 1 : 0));
    cost.depth = std::max(cost.depth, inner.depth);
    cost.attributes = std::max(cost.attributes, inner.attributes);
    cost.comparisons += inner.comparisons;
    cost.levels += inner.levels + level;
  }
  if (node.ToElement() != nullptr) ++cost.depth;
  return cost;
}

struct Parsed {
  XmlCost measured;
  XmlCost built;
  bool loaded;
};

// The computed cost of a text, and that of the library's document.
Parsed parse(std::string text) {
  text = text.substr(0, text.find('\0'));
  text.append(4, '\0');
  const XmlCost measured = costOf(text.c_str(), noLimit);
  TiXmlDocument document;
  document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
  return {measured, builtBelow(document), !document.Error()};
}

TEST(XmlCost, HasTheDepthThatTheLibraryReaches) {
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
      {"<z><Z><A><a-.:_09 z-.:_09='' Z=''><b/></a-.:_09></A></Z></z>", 5},
      {"<a 1='b'><x/>", 1},
      {"<a b=c'd><x/>", 1},
      {"<a b=c\"d><x/>", 1},
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
      // as far as the length goes that a first byte announces
      {"<a>\xc1</a><b/>", 1},
      {"<a>\xc2</a><b/>", 2},
      {"<a>\xdf</a><b/>", 2},
      {"<a>\xe0</a><b/>", 2},
      {"<a>\xef</a><b/>", 2},
      {"<a>\xf4</a><b/>", 2},
      {"<a>\xf5</a><b/>", 1},
      {"<a>\xe0\n</a><b/>", 2},
      {"<a>\xef\n\n</a><b/>", 1},
      {"<a>\xf0\n\n</a><b/>", 2},
      {"<a>\xf4\n\n</a><b/>", 2},
      {"<a>\xf4\n\n\n</a><b/>", 1},
      {"<a>&#x</a><b>x41;<c/></a>", 2},
      {"<a>&#1</a>#65;<c/></a>", 2},
      {"<a b='\xf0'/>'><c/></a>", 2},
      {"<a b='&#1'/>#65;'><c/></a>", 2},
      {"<a><!b</a>", 1},
      // an end of the text that it would skip
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
    const Parsed parsed = parse(row.bytes);
    EXPECT_EQ(parsed.measured.depth, row.depth);
    EXPECT_EQ(parsed.built.depth, row.depth);
  }
}

TEST(XmlCost, HasTheAttributesOfTheElementWithTheMost) {
  const struct {
    std::string text;
    std::size_t attributes;
  } rows[] = {
      {"", 0},
      {"<a/>", 0},
      {"<a b=''/>", 1},
      {"<a b='' c=d\te = \"'>\" >x='y' z='1'</a>", 3},
      {"<a\tb=''\tc=d\te=\t'f'\tg='h'/>", 4},
      {"<a\rb=''\nc=d\ve=\f'f' g='h'/>", 4},
      {"<a b='c=d e=f'><g h='' i=''/><j k=''/></a>", 2},
      {"<?xml version='1' encoding='2' standalone='3'?><a b=''/>", 1},
      {"<!-- <x y='' z=''> --><a b=''/>", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const Parsed parsed = parse(row.text);
    EXPECT_EQ(parsed.measured.attributes, row.attributes);
    EXPECT_EQ(parsed.built.attributes, row.attributes);
  }
}

TEST(XmlCost, AddsUpTheComparisonsOfAttributes) {
  const struct {
    std::string text;
    std::size_t comparisons;
  } rows[] = {
      {"<a/>", 0},
      {"<a b=''/>", 0},
      {"<a b='' c=''/>", 1},
      {"<a b='' c='' d=''><e f='' g=''/><h i=''/></a>", 3 + 1},
      {"<a b='' c='' d='' e=''/>", 6},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const Parsed parsed = parse(row.text);
    EXPECT_EQ(parsed.measured.comparisons, row.comparisons);
    EXPECT_EQ(parsed.built.comparisons, row.comparisons);
  }
}

TEST(XmlCost, AddsUpTheLevelsOfAllNodes) {
  const struct {
    std::string text;
    std::size_t levels;
  } rows[] = {
      {"", 0},
      {"<a/>", 0},
      {"<a></a>", 0},
      {"<a> <b/> \n</a>", 1},
      {"<a>t<b/>t</a>", 1 + 1 + 1},
      {"<a><b></b></a>", 1},
      {"<a><b>t</b></a>", 1 + 2},
      {"<a><b><!-- c --><?d?><![CDATA[e]]></b></a>", 1 + 2 + 2 + 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const Parsed parsed = parse(row.text);
    EXPECT_EQ(parsed.measured.levels, row.levels);
    EXPECT_EQ(parsed.built.levels, row.levels);
  }
}

TEST(XmlCost, IsNotCountedBeyondTheLimits) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += "<a>";
  text += "<b c='' d='' e=''/><f g='' h='' i='' j=''/>" + std::string(3, '\0');
  const auto cost = [&](const XmlCost& most) { return costOf(text.c_str(), most); };
  const auto depth = [&](std::size_t most) { return cost({most, 100, 1000000, 1000000}).depth; };
  EXPECT_EQ(depth(101), 101U);
  EXPECT_EQ(depth(99), 100U);
  EXPECT_EQ(depth(10), 11U);
  EXPECT_EQ(depth(0), 1U);
  const auto attributes = [&](std::size_t most) {
    return cost({200, most, 1000000, 1000000}).attributes;
  };
  EXPECT_EQ(attributes(4), 4U);
  EXPECT_EQ(attributes(3), 4U);
  EXPECT_EQ(attributes(2), 3U);
  EXPECT_EQ(attributes(0), 3U);
  EXPECT_EQ(cost({200, 100, 8, 1000000}).comparisons, 9U);
  EXPECT_EQ(cost({200, 100, 2, 1000000}).comparisons, 3U);
  EXPECT_EQ(cost({200, 100, 1000000, 20}).levels, 21U);
}

std::string repeated(const std::string& piece, std::size_t count) {
  std::string text;
  for (; count > 0; --count) text += piece;
  return text;
}

// Why the text must not be given to the library; empty if it may be.
std::string refusal(const std::string& text) {
  const char* reason = refusalOf((text + std::string(3, '\0')).c_str());
  return reason == nullptr ? "" : reason;
}

TEST(XmlCost, IsRefusedBeyondTheLimits) {
  const std::string deep = repeated("<a>", xmlLimits().depth);
  EXPECT_EQ(refusal(deep), "");
  EXPECT_EQ(refusal(deep + "<a>"), "Elements nested too deep.");

  const std::string attributes = "<a" + repeated(" b=c", maxAttributes);
  EXPECT_EQ(refusal(attributes), "");
  EXPECT_EQ(refusal(attributes + " b=c"), "Too many attributes.");

  // 49,995,000 comparisons for each of the four, 20,000 left
  const std::string compared = "<r>" + repeated(attributes + "/>", 4);
  EXPECT_EQ(refusal(compared + "<a" + repeated(" b=c", 200) + "/>"), "");
  EXPECT_EQ(refusal(compared + "<a" + repeated(" b=c", 201) + "/>"), "Too many attributes.");

  // 0 + 1 + ... + 999 levels to get there, and then 1000 each; 500 levels are left
  const std::string nested = repeated("<a>", 1000) + repeated("<b/>", maxLevels / 1000 - 500);
  EXPECT_EQ(refusal(nested), "");
  EXPECT_EQ(refusal(nested + "<b/>"), "Too many nested elements.");
}

// The depth with such a soft stack limit, which is restored immediately: the test itself needs its
// stack.
std::size_t depthWithStack(rlim_t bytes) {
  rlimit before{};
  getrlimit(RLIMIT_STACK, &before);
  const rlimit limit{bytes, before.rlim_max};
  if (setrlimit(RLIMIT_STACK, &limit) != 0) return 0;
  const std::size_t depth = xmlLimits().depth;
  setrlimit(RLIMIT_STACK, &before);
  return depth;
}

TEST(XmlLimits, HaveTheDepthThatTheStackAllows) {
  constexpr rlim_t kibibyte = 1024;
  const struct {
    rlim_t stack;
    std::size_t depth;
  } rows[] = {
      {0, 16},
      {64 * kibibyte, 16},
      {128 * kibibyte, 16},
      {192 * kibibyte, 16},
      {202 * kibibyte, 17},
      {256 * kibibyte, 109},
      {512 * kibibyte, 546},
      {1024 * kibibyte, 1201},
      {8192 * kibibyte, 10376},
      {65536 * kibibyte, 83776},
      {65537 * kibibyte, 83776},
      {1 << 30, 83776},
  };
  for (const auto& row : rows) EXPECT_EQ(depthWithStack(row.stack), row.depth) << row.stack;
}

// Text made of pieces with meaning to the parser, so that many texts are well-formed.
std::string randomText(std::mt19937* random) {
  static const std::string pieces[] = {
      "<a>",
      "<a>",
      "<b>",
      "</a>",
      "</a>",
      "</b>",
      "<a/>",
      "<a b='",
      "<a b=\"",
      " c='d'",
      " e=f ",
      "'",
      "\"",
      ">",
      "/>",
      "<",
      "/",
      " ",
      "t",
      "=",
      "&#",
      "&#x",
      "x41;",
      "#65;",
      ";",
      "&lt;",
      "<!--",
      "-->",
      "<![CDATA[",
      "]]>",
      "<!x",
      "<?xml ",
      "version",
      "?>",
      "\xf0",
      "\xc3",
      "\xe2",
      "\xef\xbb\xbf",
      "\xef\xbf\xbf",
      "\xef",
      "\r\n",
      "\r",
      "\n",
      "\x7f",
      "\xff",
      "-",
      "]",
      "\0"s,
  };
  std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);
  std::uniform_int_distribution<int> length(1, 40);
  std::string text = "<a>";
  for (int left = length(*random); left > 0; --left) text += pieces[pick(*random)];
  return text;
}

bool isAtLeast(const XmlCost& cost, const XmlCost& other) {
  return cost.depth >= other.depth && cost.attributes >= other.attributes &&
         cost.comparisons >= other.comparisons && cost.levels >= other.levels;
}

std::string inWords(const XmlCost& cost) {
  return std::to_string(cost.depth) + " levels deep, " + std::to_string(cost.attributes) +
         " attributes, " + std::to_string(cost.comparisons) + " comparisons, " +
         std::to_string(cost.levels) + " levels in all";
}

// The cost must be reliable: never less than what the library reaches, and exactly the same for
// text that it accepts.
TEST(XmlCost, IsNeverLessThanTheLibrarysOnRandomText) {
  constexpr unsigned seed = 20231;
  std::mt19937 random(seed);
  int accepted = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::string text = randomText(&random);
    const Parsed parsed = parse(text);
    if (parsed.loaded) ++accepted;
    const bool ok = isAtLeast(parsed.measured, parsed.built) &&
                    (!parsed.loaded || isAtLeast(parsed.built, parsed.measured));
    ASSERT_TRUE(ok) << "case " << i << " of seed " << seed << ": measured "
                    << inWords(parsed.measured) << ", library " << inWords(parsed.built)
                    << ", text " << testing::PrintToString(text);
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace runlet
