#include "job/xml_extent.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <random>
#include <string>

#include "job/job_text.h"

namespace runlet {
namespace {

using namespace std::string_literals;

constexpr XmlExtent noLimit = {1000000, 1000000, 1000000};

std::size_t attributesOf(const TiXmlElement* element) {
  std::size_t count = 0;
  if (element == nullptr) return count;
  for (const TiXmlAttribute* attribute = element->FirstAttribute(); attribute != nullptr;
       attribute = attribute->Next()) {
    ++count;
  }
  return count;
}

// How far the library itself gets, whether or not it finds an error in the end.
XmlExtent extentOf(const TiXmlNode& node) {
  XmlExtent extent = {0, attributesOf(node.ToElement()), 0};
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    const XmlExtent inner = extentOf(*child);
    extent.depth = std::max(extent.depth, inner.depth);
    extent.attributes = std::max(extent.attributes, inner.attributes);
  }
  if (node.ToElement() != nullptr) ++extent.depth;
  return extent;
}

// A document that measures what it is about to parse, as the loader does.
class MeasuredDocument : public TiXmlDocument {
 public:
  const char* Parse(const char* text, TiXmlParsingData* data, TiXmlEncoding encoding) override {
    padText(const_cast<char*>(text));
    measured = measureXml(text, noLimit);
    return TiXmlDocument::Parse(text, data, encoding);
  }

  XmlExtent measured = {};
};

struct Parsed {
  XmlExtent measured;
  XmlExtent extent;
  bool loaded;
};

// What is found in the bytes of a file, and what the library makes of them.
Parsed parse(std::string bytes) {
  bytes.append(paddingLength, '\0');
  std::FILE* stream = fmemopen(bytes.data(), bytes.size(), "r");
  MeasuredDocument document;
  const bool loaded = document.LoadFile(stream, TIXML_ENCODING_UTF8);
  std::fclose(stream);
  return {document.measured, extentOf(document), loaded};
}

TEST(XmlExtent, HasTheDepthThatTheLibraryGetsTo) {
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
    const Parsed parsed = parse(row.bytes);
    EXPECT_EQ(parsed.measured.depth, row.depth);
    EXPECT_EQ(parsed.extent.depth, row.depth);
  }
}

TEST(XmlExtent, HasTheAttributesOfTheElementWithTheMost) {
  const struct {
    std::string text;
    std::size_t attributes;
  } rows[] = {
      {"", 0},
      {"<a/>", 0},
      {"<a b=''/>", 1},
      {"<a b='' c=d\te = \"'>\" >x='y' z='1'</a>", 3},
      {"<a b='c=d e=f'><g h='' i=''/><j k=''/></a>", 2},
      {"<?xml version='1' encoding='2' standalone='3'?><a b=''/>", 1},
      {"<!-- <x y='' z=''> --><a b=''/>", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const Parsed parsed = parse(row.text);
    EXPECT_EQ(parsed.measured.attributes, row.attributes);
    EXPECT_EQ(parsed.extent.attributes, row.attributes);
  }
}

TEST(XmlExtent, AddsUpTheLevelsOfAllMarkup) {
  const struct {
    const char* text;
    std::size_t steps;
  } rows[] = {
      {"", 0},
      {"<a/>", 0},
      {"<a></a>", 1},
      {"<a>t<b/>t</a>", 1 + 1},
      {"<a><b></b></a>", 1 + 2 + 1},
      {"<a><b><!-- c --><?d?><![CDATA[e]]></b></a>", 1 + 2 + 2 + 2 + 2 + 1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(measureXml(row.text, noLimit).steps, row.steps) << row.text;
  }
}

TEST(XmlExtent, IsNotLookedForBeyondEnough) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += "<a>";
  text += "<b c='' d='' e=''/><f g='' h='' i='' j=''/>";
  const auto depth = [&](std::size_t enough) {
    return measureXml(text.c_str(), {enough, 100, 1000000}).depth;
  };
  EXPECT_EQ(depth(101), 101U);
  EXPECT_EQ(depth(99), 100U);
  EXPECT_EQ(depth(10), 11U);
  EXPECT_EQ(depth(0), 1U);
  const auto attributes = [&](std::size_t enough) {
    return measureXml(text.c_str(), {200, enough, 1000000}).attributes;
  };
  EXPECT_EQ(attributes(4), 4U);
  EXPECT_EQ(attributes(3), 4U);
  EXPECT_EQ(attributes(2), 3U);
  EXPECT_EQ(attributes(0), 3U);
  EXPECT_EQ(measureXml(text.c_str(), {200, 100, 20}).steps, 21U);
}

TEST(XmlExtent, IsRefusedBeyondTheLimits) {
  const auto repeated = [](const char* piece, std::size_t count) {
    std::string text;
    for (; count > 0; --count) text += piece;
    return text;
  };
  const std::string deep = repeated("<a>", xmlLimits.depth);
  EXPECT_EQ(refusalOf(deep.c_str()), nullptr);
  EXPECT_STREQ(refusalOf((deep + "<a>").c_str()), "Elements nested too deep.");

  const std::string attributes = "<a" + repeated(" b=c", xmlLimits.attributes);
  EXPECT_EQ(refusalOf(attributes.c_str()), nullptr);
  EXPECT_STREQ(refusalOf((attributes + " b=c").c_str()), "Too many attributes.");

  // 1 + 2 + ... + 999 steps to get there, and then 1000 each
  const std::string nested = repeated("<a>", 1000) + repeated("<b/>", xmlLimits.steps / 1000 - 500);
  EXPECT_EQ(refusalOf(nested.c_str()), nullptr);
  EXPECT_STREQ(refusalOf((nested + "<b/>").c_str()), "Too many nested elements.");
}

// Text made of pieces that mean something to the parser, so that many of them are well-formed.
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

bool isAtLeast(const XmlExtent& extent, const XmlExtent& other) {
  return extent.depth >= other.depth && extent.attributes >= other.attributes;
}

std::string inWords(const XmlExtent& extent) {
  return std::to_string(extent.depth) + " levels and " + std::to_string(extent.attributes) +
         " attributes";
}

// What is refused must not depend on luck: never less than the library gets to, and the very same
// for text that it accepts.
TEST(XmlExtent, IsNeverLessThanTheLibrarysOnRandomText) {
  constexpr unsigned seed = 20231;
  std::mt19937 random(seed);
  int accepted = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::string text = randomText(&random);
    const Parsed parsed = parse(text);
    const XmlExtent& measured = parsed.measured;
    if (parsed.loaded) ++accepted;
    const bool ok = isAtLeast(measured, parsed.extent) &&
                    (!parsed.loaded || isAtLeast(parsed.extent, measured));
    ASSERT_TRUE(ok) << "case " << i << " of seed " << seed << ": measured " << inWords(measured)
                    << ", library " << inWords(parsed.extent) << ", text "
                    << testing::PrintToString(text);
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace runlet
