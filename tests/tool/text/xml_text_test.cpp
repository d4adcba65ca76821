// Escaping text for an XML file.

#include <gtest/gtest.h>

#include <vector>

#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

struct EscapeRow {
  std::string text;
  std::string braced;
  std::string alone;
};

TEST(XmlText, IsEscaped) {
  const std::vector<EscapeRow> rows = {
      {"plain", "plain", "plain"},
      {"", "", ""},
      {"a b", "a b", "a b"},
      {"a  b", "a&#32;&#32;b", "a&#32;&#32;b"},
      {" a ", " a ", "&#32;a&#32;"},
      {" ", " ", "&#32;"},
      {"  ", "&#32;&#32;", "&#32;&#32;"},
      {"a\tb", "a&#9;b", "a&#9;b"},
      {"a \tb", "a&#32;&#9;b", "a&#32;&#9;b"},
      {"a\t b", "a&#9;&#32;b", "a&#9;&#32;b"},
      {"a\nb\rc\r\nd", "a&#10;b&#13;c&#13;&#10;d", "a&#10;b&#13;c&#13;&#10;d"},
      {"<a href=\"x\">", "&lt;a href=\"x\"&gt;", "&lt;a href=\"x\"&gt;"},
      {"]]>", "]]&gt;", "]]&gt;"},
      {"&amp;&#9;", "&amp;amp;&amp;#9;", "&amp;amp;&amp;#9;"},
      {"{}'\\%", "{}'\\%", "{}'\\%"},
      {"\xc3\xa4\xf0\x9f\x8e\xac\x7f", "\xc3\xa4\xf0\x9f\x8e\xac\x7f",
       "\xc3\xa4\xf0\x9f\x8e\xac\x7f"},
      // it would be skipped before text that is alone
      {"\xef\xbb\xbf"
       "a\xef\xbb\xbf",
       "\xef\xbb\xbf"
       "a\xef\xbb\xbf",
       "&#xFEFF;a\xef\xbb\xbf"},
      {"\xef\xbb\xbf\xef\xbb\xbf", "\xef\xbb\xbf\xef\xbb\xbf", "&#xFEFF;\xef\xbb\xbf"},
  };
  for (const EscapeRow& row : rows) {
    EXPECT_EQ(escapeBraced(row.text), row.braced);
    EXPECT_EQ(escapeAlone(row.text), row.alone);
  }
}

struct ObstacleRow {
  std::string text;
  const char* obstacle;
};

TEST(XmlText, KnowsWhatXmlCannotHold) {
  using namespace std::string_literals;
  const std::vector<ObstacleRow> rows = {
      {"", ""},
      {"a \t\r\n<&>\x7f", ""},
      {"\xc2\x80\xef\xbf\xbd\xef\xbb\xbf\xee\x80\x80\xf4\x8f\xbf\xbf", ""},
      {"\0"s, "XML has no character U+0000, at byte 1"},
      {"ab\x01", "XML has no character U+0001, at byte 3"},
      {"\x0b", "XML has no character U+000B, at byte 1"},
      {"\x1f", "XML has no character U+001F, at byte 1"},
      {"\xc3\xa4\xef\xbf\xbe", "XML has no character U+FFFE, at byte 3"},
      {"a\xef\xbf\xbf", "XML has no character U+FFFF, at byte 2"},
      {"\x80", "the byte 0x80 is not UTF-8, at byte 1"},
      {"a\xff", "the byte 0xFF is not UTF-8, at byte 2"},
      {"\xc3", "the byte 0xC3 is not UTF-8, at byte 1"},
      {"\xc0\x80", "the byte 0xC0 is not UTF-8, at byte 1"},
      {"\xed\xa0\x80", "the byte 0xED is not UTF-8, at byte 1"},
      {"\xf4\x90\x80\x80", "the byte 0xF4 is not UTF-8, at byte 1"},
  };
  for (const ObstacleRow& row : rows) EXPECT_EQ(xmlObstacle(row.text), row.obstacle);
}

}  // namespace
}  // namespace runlet_tool
