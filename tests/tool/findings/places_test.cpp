// The position of a finding in the file: in lines and characters, as an editor counts them,
// whatever comes before it.

#include "findings.h"

namespace runlet_test {
namespace {

// A good job with these elements in its second line.
std::string jobWith(const std::string& elements) {
  std::string text = "<Job><cmdData>\n";
  text.append(elements).append("<TaskTimeout>30</TaskTimeout><uid>1000</uid><gid>1000</gid>");
  text.append("<umask>18</umask><TaskList><Task><Params>{dawn}</Params></Task></TaskList>");
  return text.append("<JobParams/></cmdData></Job>\n");
}

struct Row {
  std::string arguments;
  int column;
  int line = 2;
};

class Places : public Findings {
 protected:
  void expectPlace(const std::string& text, int line, int column) {
    SCOPED_TRACE(text);
    given_[bad] = text;
    expectCheck(bad, {{"RJ060", "error", line, column, "%tx", "all"}});
  }

  void expectPlaces(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      expectPlace(jobWith(row.arguments), row.line, row.column);
    }
  }
};

TEST_F(Places, AreCountedInCharacters) {
  expectPlaces({
      {"<Arguments>{echo %tx}</Arguments>", 18},
      {"<Arguments>{echo \xc3\xa4 %tx}</Arguments>", 20},
      {"<Arguments>{echo \xe2\x82\xac %tx}</Arguments>", 20},
      {"<Arguments>{echo \xf0\x9f\x98\x80 %tx}</Arguments>", 20},
      {"<!-- \xc3\xa4\xc3\xa4 --><Arguments>{echo %tx}</Arguments>", 29},
      {"\t<Arguments>{echo %tx}</Arguments>", 19},
      {"<Arguments a='\xc3\xa4'>{echo %tx}</Arguments>", 24},
  });
}

// A reference is one character of the text and several of the file.
TEST_F(Places, AreRightWithReferencesBeforeThem) {
  expectPlaces({
      {"<Arguments>{echo &amp; %tx}</Arguments>", 24},
      {"<Arguments>{echo &lt;&gt;&quot;&apos; %tx}</Arguments>", 39},
      {"<Arguments>{echo &#228; %tx}</Arguments>", 25},
      {"<Arguments>{echo &#xe4; %tx}</Arguments>", 25},
      {"<Arguments>{echo &#x20ac;&#32; %tx}</Arguments>", 32},
      {"<Arguments>&#123;echo %tx}</Arguments>", 23},
      {"<Arguments>{echo &#37;tx}</Arguments>", 18},
  });
}

TEST_F(Places, AreRightWithDroppedTextBeforeThem) {
  expectPlaces({
      {"<Arguments>   {echo %tx}</Arguments>", 21},
      {"<Arguments>\n  {echo %tx}\n</Arguments>", 9, 3},
      {"<Arguments>\t\n\n {echo %tx}</Arguments>", 8, 4},
      {"<!-- a\n\n b --><Arguments>{echo %tx}</Arguments>", 24, 4},
      {"<Arguments\n>{echo %tx}</Arguments>", 8, 3},
      {"<Arguments><![CDATA[{echo %tx}]]></Arguments>", 27},
      {"<Arguments><![CDATA[{echo\n&amp; \n  %tx}]]></Arguments>", 3, 4},
  });
}

TEST_F(Places, AreRightWithEveryKindOfLineEnd) {
  for (const std::string end : {"\n", "\r\n", "\r"}) {
    expectPlace("<Job>" + end + "<cmdData>" + end + end +
                    "<Arguments>{echo %tx}</Arguments><TaskTimeout>30</TaskTimeout>" + end +
                    "<uid>1000</uid><gid>1000</gid><umask>18</umask>" + end +
                    "<TaskList><Task><Params>{dawn}</Params></Task></TaskList><JobParams/>" + end +
                    "</cmdData></Job>",
                4, 18);
  }
}

TEST_F(Places, AreRightWithAByteOrderMark) {
  std::string text = "\xef\xbb\xbf";
  text += jobWith("<Arguments>{echo %tx}</Arguments>");
  text.erase(text.find('\n'), 1);
  expectPlace(text, 1, 32);
}

// The condensed white space is a finding, too.
TEST_F(Places, AreRightWithCondensedSpaceBeforeThem) {
  given_[bad] = jobWith("<Arguments>{echo  \xc3\xa4\n   &amp; %tx}</Arguments>");
  expectCheck(bad, {{"RJ026", "note", 2, 17, "<space><space>", ""},
                    {"RJ060", "error", 3, 10, "%tx", "all"}});
}

}  // namespace
}  // namespace runlet_test
