// Other forms of a fault than that of its sample. An error prevents the adapter from starting every
// task; a warning or note does not.

#include "findings.h"

namespace runlet_test {
namespace {

std::string number(const std::string& name, const std::string& text) {
  return "<" + name + ">" + text + "</" + name + ">";
}

// Replaces `from` by `to` in a faultless job of one task and one parameter.
struct Form {
  const char* codes;  // in the order of their positions
  const char* from;
  std::string to;
};

constexpr char good[] =
    "<Job>\n<cmdData>\n<Arguments>{/bin/echo %tp1 %jp1}</Arguments>\n<TaskTimeout>30</TaskTimeout>"
    "\n<uid>1000</uid>\n<gid>1000</gid>\n<umask>18</umask>\n<TaskList>\n"
    "<Task><Params>{dawn}</Params></Task>\n</TaskList>\n<JobParams>\n"
    "<Param><Name>{scene}</Name><Value>{harbour}</Value></Param>\n</JobParams>\n</cmdData>\n</Job>"
    "\n";

class Forms : public Findings {
 protected:
  void expectCodes(const std::vector<Form>& forms) {
    for (const Form& form : forms) {
      SCOPED_TRACE(form.to);
      std::string text = good;
      const std::size_t at = text.find(form.from);
      ASSERT_NE(at, std::string::npos);
      given_[bad] = text.replace(at, std::string(form.from).size(), form.to);
      expectSummary(form.codes);
    }
  }

 private:
  void expectSummary(const std::string& codes) {
    const Summary summary = summaryOf(bad);
    EXPECT_EQ(summary.codes, codes);
    const ProcessResult result = runTasks(bad);
    // Only root may run tasks as another user.
    if (result.error.find("Operation not permitted") != std::string::npos) return;
    EXPECT_EQ(summary.errors == 0, startsAll(result, summary.tasks)) << result.error;
  }

  static bool startsAll(const ProcessResult& result, int tasks) {
    int started = 0;
    const std::string output = withoutPids(result.output);
    for (std::size_t at = output.find(processStarted); at != std::string::npos; ++started) {
      at = output.find(processStarted, at + 1);
    }
    return started == tasks && tasks != 0 && describeStatus(result.waitStatus) == "exit 0" &&
           result.error.find("Cannot execute command") == std::string::npos;
  }
};

TEST_F(Forms, OfTheStructure) {
  expectCodes({
      {"", "", ""},
      {"", "<cmdData>", "<note>for the night</note><cmdData>"},
      {"RJ004", "<Job>", ""},
      {"RJ002", "</Job>", ""},
      {"RJ003", "<Job>", "<!-- a job --><Job>"},
      {"RJ005", "<cmdData>", "<!--cmdData--><cmdData>"},
      {"RJ005", "<cmdData>", "cmdData<cmdData>"},
      {"RJ003", "<Job>", "<!DOCTYPE Job><Job>"},
      {"RJ009", "<Value>", "<Name>{look}</Name><Value>"},
      {"RJ009", "</Value>", "</Value><Value>{misty}</Value>"},
      {"RJ009", "</Params>", "</Params><Params>{dusk}</Params>"},
      {"RJ009", "</cmdData>", "</cmdData><cmdData/>"},
      {"RJ009", "</TaskList>", "</TaskList><TaskList/>"},
      {"RJ010", "<uid>", "<UID>1000</UID><uid>"},
      {"RJ010", "</Params>", "</Params><Name>{dusk}</Name>"},
      {"RJ010", "</Task>", "</Task><task/>"},
      {"RJ010", "<cmdData>", "<umask>18</umask><cmdData>"},
      {"RJ009", "<Name>", "<Value>{misty}</Value><Name>"},
      {"RJ011", "<uid>", "1000<uid>"},
      {"RJ011", "<Name>", "1<Name>"},
      {"RJ012", "18", "<![CDATA[1]]>8"},
      {"RJ012", "18", "1<b>8</b>"},
      {"RJ012", "{harbour}", "{har}<![CDATA[bour}]]>"},
      {"RJ013", "<TaskList>", "<TaskList><!--Task-->"},
      {"RJ014", "%tp1", "%tp1 & x"},
      {"RJ014", "{dawn", "{&foo;dawn"},
      {"RJ014", "{harbour}", "{&#65;&apos;&amp;& harbour}"},
  });
}

TEST_F(Forms, OfBraces) {
  expectCodes({
      {"RJ020", "{/bin/echo %tp1 %jp1}", "{}"},
      {"RJ020", "{dawn}", "dawn"},
      {"RJ020", "{dawn}", "{dawn"},
      {"RJ020", "{dawn}", "dawn}"},
      {"RJ020", "{dawn}", "{}"},
      {"RJ021", "{dawn}", "}dawn{"},
      {"RJ021", "{scene}", "}{"},
      {"RJ021", "{harbour}", "}harbour{"},
      {"RJ022", "{dawn}", "frame {dawn}"},
      {"RJ022", "{harbour}", "{harbour};"},
      {"RJ022", "{scene}", "the {scene}"},
      {"RJ023", "{scene}", "scene"},
      {"RJ023", "{harbour}", "{harbour"},
  });
}

TEST_F(Forms, OfWhiteSpace) {
  folder_.makeFolder("my shots");
  expectCodes({
      {"RJ025", "{dawn}", "{dawn\nlight}"},
      {"RJ025", "{scene}", "{scene  file}"},
      {"RJ025", "{harbour}", "{harbour\tview}"},
      {"RJ025", "<uid>", "<WorkingFolder>@FOLDER@/my  shots</WorkingFolder><uid>"},
      {"RJ025", "<uid>", "<LogFolder>/tmp/my  shots</LogFolder><uid>"},
      {"RJ026", "/bin/echo ", "/bin/echo\n  "},
  });
}

TEST_F(Forms, OfControlCharacters) {
  folder_.makeFolder("a\x7f");
  folder_.makeFolder("a\nb\t");
  expectCodes({
      {"RJ040", "{dawn}", "{d&#x1b;awn}"},
      {"RJ040", "{dawn}",
       "<![CDATA[{d\xc2\x9b"
       "awn}]]>"},
      {"RJ040", "{dawn}", "{d\xe2\x80\xaenwa}"},
      {"RJ040", "{scene}", "{sce\x08ne}"},
      {"RJ073 RJ040", "{harbour}", "{har&#13;bour}"},
      {"RJ040", "<uid>", "<WorkingFolder>@FOLDER@/a\x7f</WorkingFolder><uid>"},
      {"RJ040", "<uid>", "<LogFolder>/tmp/\xe2\x81\xa6</LogFolder><uid>"},
      {"RJ040", "<uid>", "<Outputs>/tmp/\xd8\x9c</Outputs><uid>"},
      {"", "<uid>", "<WorkingFolder>@FOLDER@/a&#10;b&#9;</WorkingFolder><uid>"},
      {"", "{dawn}", "{dawn&#9;f\xc3\xbcr}"},
  });
}

TEST_F(Forms, OfNumbers) {
  expectCodes({
      {"RJ027", "<uid>", "<TaskNameIdx/><uid>"},
      {"RJ027", "<uid>", "<redirectStderr> </redirectStderr><uid>"},
      {"RJ027", "<uid>1000</uid>", "<uid></uid>"},
      {"RJ027", "<gid>1000</gid>", "<gid/>"},
      {"RJ027", "<TaskTimeout>30</TaskTimeout>", "<TaskTimeout><!-- none --></TaskTimeout>"},
      {"RJ028", "18", "18 octal 022"},
      {"RJ028", "<uid>", "<TaskNameIdx>1a</TaskNameIdx><uid>"},
      {"RJ029", "<uid>", "<TaskNameIdx>first</TaskNameIdx><uid>"},
      {"RJ030", "<uid>1000", "<uid>4294968296"},
      {"RJ032", "18", "-1"},
      {"RJ034", "<uid>1000", "<uid>artist"},
      {"RJ034", "<gid>1000", "<gid>artists"},
      {"RJ034 RJ028", "<uid>1000", "<uid>0x3e8"},
      {"RJ030 RJ034", "<uid>1000", "<uid>4294967296"},
      {"RJ034 RJ012", "<uid>1000", "<uid>0<!-- -->1000"},
      {"RJ034", "<uid>1000", "<uid>&#0;1000"},
      {"RJ034", "<uid>1000", "<uid>0&#0;1000"},
      {"RJ035", "<uid>1000", "<uid>&#48;"},
      {"RJ034 RJ028", "<gid>1000", "<gid>-0.5"},
      {"RJ034 RJ009", "<uid>1000</uid>", "<uid>0</uid><uid>1000</uid>"},
      {"RJ035", "<uid>1000", "<uid> 0 "},
      {"RJ035", "<uid>1000", "<uid>+00<!-- root -->"},
      {"", "<gid>1000", "<gid>0"},
      {"RJ036", "<gid>1000", "<gid>-1"},
      {"RJ037", "<uid>1000", "<uid>-1"},
      {"RJ038", "30", "0"},
      {"RJ038", "30", "-5"},
      {"RJ039", "30", "35792"},
      {"RJ039", "30", "-35792"},
  });
}

TEST_F(Forms, OfFlags) {
  const struct {
    const char* text;
    const char* codes;
  } rows[] = {{"on", "RJ033"}, {"enable", "RJ033"}, {"2", "RJ033"}, {"ja", "RJ033"},
              {"-1", "RJ033"}, {"no", ""},          {"off", ""},    {"Off", ""}};
  for (const auto& row : rows) {
    expectCodes({{row.codes, "<uid>", number("redirectStderr", row.text) + "<uid>"}});
  }
}

TEST_F(Forms, OfTasksAndParameters) {
  const std::string second = "</Param><Param><Name>{look}</Name><Value>{a}</Value></Param>";
  expectCodes({
      {"RJ050", "<TaskList>", "<TaskList><Task/>"},
      {"RJ050", "<TaskList>", "<TaskList><Task><Params/></Task>"},
      {"RJ051", "<Task><Params>{dawn}</Params></Task>", ""},
      {"RJ054", "<Param>", "<Param/><Param>"},
      {"RJ054", "</Param>", second + "<Extra/>"},
      {"RJ056", "</Param>", second},
      {"RJ057", "harbour", "@2000@"},
      {"RJ057", "dawn", "@2000@"},
  });
}

TEST_F(Forms, OfTemplates) {
  expectCodes({
      {"RJ060", "%tp1", "%t"},
      {"RJ060", "%tp1", "%4t"},
      {"RJ060", "%tp1", "%jn"},
      {"RJ060", "%tp1", "%tN"},
      {"RJ061", "%tp1", "%tp"},
      {"RJ061", "%tp1", "%tp0"},
      {"RJ061", "%tp1", "%4tp2"},
      {"RJ061", "%tp1", "%jp2"},
      {"RJ063", "%tp1", "%12tn %3tp1"},
      {"RJ063", "%tp1", "%12%%3tp1"},
      {"RJ065", "%tp1", "%d"},
      {"RJ065 RJ065", "%tp1", "%4 %TN"},
      {"RJ065", "%jp1", "%jp1%"},
      {"RJ066", "%tp1", "%3990tp1"},
      {"RJ061 RJ067", "%tp1", "%tp00000000000000000000000000000001"},
      {"RJ068", "%tp1", "%4294967298tp1"},
  });
}

TEST_F(Forms, OfCommandLines) {
  expectCodes({
      {"RJ070", "harbour", "\"harbour"},
      {"RJ071", "dawn", "da\"wn"},
      {"RJ071", "%tp1", "--take=\"%tp1\""},
      {"RJ072", "%tp1", "\"%tp1\"\"%tn\""},
      {"RJ073", "%tp1", "%tp1&#10;"},
      {"RJ074", "{/bin/echo ", "{\"\" "},
      {"RJ074", "{/bin/echo ", "{&#32;\"\" "},
      {"RJ081", "%tp1", "%tp1 | cat"},
      {"RJ081", "%tp1", "%tp1 &gt; /dev/null"},
      {"RJ081", "%tp1", "%tp1 &amp;&amp; echo"},
      {"RJ081", "%tp1", "'%tp1'"},
      {"RJ081", "%tp1", "~/%tp1"},
      {"RJ081", "%tp1", "`%tp1`"},
      {"RJ080", "<uid>", "<WorkingFolder>.</WorkingFolder><uid>"},
  });
}

// A finding about some tasks names only these.
TEST_F(Forms, OfSomeTasksOnly) {
  std::string tasks;
  for (const char* fields :
       {"a&#9;1", "b&#9;2", "c", "d", "e", "f&#9;6", "g&#9;7", "h&#9;8", "i"}) {
    tasks += std::string("<Task><Params>{") + fields + "}</Params></Task>\n";
  }
  std::string text = good;
  text.replace(text.find("%tp1"), 4, "%tp2");
  const std::string one = "<Task><Params>{dawn}</Params></Task>\n";
  given_[bad] = text.replace(text.find(one), one.size(), tasks);
  expectCheck(bad, {{"RJ061", "warning", 3, 23, "%tp2", "3-5,9"}});
}

}  // namespace
}  // namespace runlet_test
