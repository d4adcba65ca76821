#include "job/parameter_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "temp_folder.h"
#include "xml/guard.h"
#include "xml/limits.h"

namespace runlet {
namespace {

constexpr char invalidSyntax[] = "Runlet adapter: Invalid XML job syntax.\n";
constexpr char stripBraceFailed[] = "Runlet adapter: Strip brace failed.\n";
constexpr char noParams[] = "<JobParams/>";

// A job file in its own folder.
class ParameterFile : public testing::Test {
 protected:
  void write(const std::string& text) {
    folder_.write("job.xml", text);
  }

  // Loads the file at `path`, returns the result, and stores standard error and the context.
  bool load(const std::string& path) {
    context_ = AdapterContext();
    context_.jobFile = path;
    testing::internal::CaptureStderr();
    const bool loaded = loadParameterFile(&context_);
    standardError_ = testing::internal::GetCapturedStderr();
    return loaded;
  }

  void expectLoads(const std::string& text) {
    write(text);
    EXPECT_TRUE(load(path_)) << text;
    EXPECT_EQ(standardError_, "") << text;
  }

  void expectFails(const std::string& text, const std::string& message) {
    write(text);
    EXPECT_FALSE(load(path_)) << text;
    EXPECT_EQ(standardError_, message) << text;
  }

  std::string couldNotLoad(const std::string& reason) const {
    return "Runlet adapter: Could not load parameter file " + path_ + ". Error='" + reason +
           "'.Exiting.\n";
  }

  const AdapterContext& context() const {
    return context_;
  }

  runlet_test::TempFolder folder_;
  std::string path_ = folder_.file("job.xml");
  AdapterContext context_;
  std::string standardError_;
};

// A job whose `cmdData` holds `elements`, followed by the required elements.
std::string job(const std::string& elements) {
  return "<Job><cmdData>" + elements + "<TaskList/>" + noParams + "</cmdData></Job>";
}

std::string jobWithTasks(const std::string& tasks) {
  return "<Job><cmdData><TaskList>" + tasks + "</TaskList>" + noParams + "</cmdData></Job>";
}

std::string jobWithParams(const std::string& params) {
  return "<Job><cmdData><TaskList/><JobParams>" + params + "</JobParams></cmdData></Job>";
}

using Strings = std::vector<std::string>;

Strings plain(const StringList& list) {
  return {list.begin(), list.end()};
}

TEST_F(ParameterFile, FillsEveryField) {
  expectLoads(R"(<night-job>
  <cmdData>
    <Outputs>/srv/out/night</Outputs>
    <Arguments>{bake --map %tp1 --layers %tp3 --seed %jp2 --to map%tn.exr}</Arguments>
    <TaskTimeout>45</TaskTimeout>
    <WorkingFolder>/srv/show/night</WorkingFolder>
    <gid>50</gid>
    <uid>2003</uid>
    <LogFolder>/srv/log/night</LogFolder>
    <redirectStderr>never</redirectStderr>
    <TaskNameIdx>2</TaskNameIdx>
    <TaskList>
      <Task><Params>{hills&#9;the far hills&#9;4}</Params></Task>
      <Task><Params>{sea&#9;the sea&#9;2}</Params></Task>
      <Task><Params>{sky&#9;the sky&#9;1}</Params></Task>
    </TaskList>
    <umask>7</umask>
    <JobParams>
      <Param><Name>{palette}</Name><Value>{dusk, warm}</Value></Param>
      <Param><Name>{seed}</Name><Value>{77}</Value></Param>
    </JobParams>
  </cmdData>
</night-job>
)");
  EXPECT_EQ(context().arguments, "bake --map %tp1 --layers %tp3 --seed %jp2 --to map%tn.exr");
  EXPECT_EQ(context().workingFolder, "/srv/show/night");
  EXPECT_EQ(context().logFolder, "/srv/log/night");
  EXPECT_EQ(context().outputs, "/srv/out/night");
  EXPECT_EQ(context().taskNameIdx, 2);
  EXPECT_EQ(context().taskTimeout, 45);
  EXPECT_EQ(context().uid, 2003);
  EXPECT_EQ(context().gid, 50);
  EXPECT_EQ(context().umask, 7);
  EXPECT_FALSE(context().redirectStderr);
  EXPECT_EQ(plain(context().taskList),
            (Strings{"hills\tthe far hills\t4", "sea\tthe sea\t2", "sky\tthe sky\t1"}));
  EXPECT_EQ(plain(context().paramNames), (Strings{"palette", "seed"}));
  EXPECT_EQ(plain(context().paramValues), (Strings{"dusk, warm", "77"}));
}

TEST_F(ParameterFile, LeavesDefaultsIfElementsAreAbsent) {
  expectLoads(job(""));
  EXPECT_EQ(context().arguments, "");
  EXPECT_EQ(context().workingFolder, "");
  EXPECT_EQ(context().logFolder, "");
  EXPECT_EQ(context().outputs, "");
  EXPECT_EQ(context().taskNameIdx, 0);
  EXPECT_EQ(context().taskTimeout, 0);
  EXPECT_EQ(context().uid, -1);
  EXPECT_EQ(context().gid, -1);
  EXPECT_EQ(context().umask, 0);
  EXPECT_TRUE(context().redirectStderr);
  EXPECT_TRUE(context().taskList.empty());
  EXPECT_TRUE(context().paramNames.empty());
  EXPECT_TRUE(context().paramValues.empty());
}

TEST_F(ParameterFile, TouchesNoOtherField) {
  write(job("<uid>7</uid>"));
  context_.jobFile = path_;
  context_.appPath = "/a/b";
  context_.opcode = "NewTask";
  context_.firstTask = 3;
  context_.taskCount = 4;
  context_.elapsedMs = 5;
  context_.userName = "u";
  EXPECT_TRUE(loadParameterFile(&context_));
  EXPECT_EQ(context().jobFile, path_);
  EXPECT_EQ(context().appPath, "/a/b");
  EXPECT_EQ(context().opcode, "NewTask");
  EXPECT_EQ(context().firstTask, 3);
  EXPECT_EQ(context().taskCount, 4);
  EXPECT_EQ(context().elapsedMs, 5);
  EXPECT_EQ(context().userName, "u");
}

TEST_F(ParameterFile, TakesTextElementsUnchanged) {
  const struct {
    const char* element;
    std::string AdapterContext::*field;
    const char* text;
  } rows[] = {
      {"<Arguments>{a b}</Arguments>", &AdapterContext::arguments, "a b"},
      {"<Arguments>pre {cmd {a} b} post</Arguments>", &AdapterContext::arguments, "cmd {a} b"},
      {"<Arguments/>", &AdapterContext::arguments, ""},
      {"<Arguments></Arguments>", &AdapterContext::arguments, ""},
      {"<Arguments>   </Arguments>", &AdapterContext::arguments, ""},
      {"<Arguments><!--x-->{a}</Arguments>", &AdapterContext::arguments, ""},
      {"<Arguments><b/>{a}</Arguments>", &AdapterContext::arguments, ""},
      {"<Arguments>{a}<!--x-->{b}</Arguments>", &AdapterContext::arguments, "a"},
      {"<Arguments>{a}</Arguments><Arguments>{b}</Arguments>", &AdapterContext::arguments, "a"},
      {"<Arguments/><Arguments>{b}</Arguments>", &AdapterContext::arguments, ""},
      {"<Arguments>{ }</Arguments>", &AdapterContext::arguments, " "},
      {"<Arguments>{a&#9;b &lt;&amp;&gt; &quot;&apos;}</Arguments>", &AdapterContext::arguments,
       "a\tb <&> \"'"},
      {"<Arguments>  {a \t\r\n  b}  </Arguments>", &AdapterContext::arguments, "a b"},
      {"<Arguments><![CDATA[ {a\t  <b>} ]]></Arguments>", &AdapterContext::arguments, "a\t  <b>"},
      {"<Arguments>{\xc3\xa9&#233;}</Arguments>", &AdapterContext::arguments, "\xc3\xa9\xc3\xa9"},
      {"<WorkingFolder>{/a b}</WorkingFolder>", &AdapterContext::workingFolder, "{/a b}"},
      {"<WorkingFolder/>", &AdapterContext::workingFolder, ""},
      {"<WorkingFolder> /a  b </WorkingFolder>", &AdapterContext::workingFolder, "/a b"},
      {"<workingfolder>/a</workingfolder>", &AdapterContext::workingFolder, ""},
      {"<x><WorkingFolder>/a</WorkingFolder></x>", &AdapterContext::workingFolder, ""},
      {"<LogFolder>/l</LogFolder>", &AdapterContext::logFolder, "/l"},
      {"<Outputs>/o</Outputs>", &AdapterContext::outputs, "/o"},
      {"<Outputs>/o</Outputs><Outputs>/p</Outputs>", &AdapterContext::outputs, "/o"},
  };
  for (const auto& row : rows) {
    expectLoads(job(row.element));
    EXPECT_EQ(context().*row.field, row.text) << row.element;
  }
}

TEST_F(ParameterFile, ReadsNumbersAsDecimal) {
  const struct {
    const char* name;
    std::int32_t AdapterContext::*field;
  } elements[] = {
      {"TaskNameIdx", &AdapterContext::taskNameIdx},
      {"TaskTimeout", &AdapterContext::taskTimeout},
      {"uid", &AdapterContext::uid},
      {"gid", &AdapterContext::gid},
      {"umask", &AdapterContext::umask},
  };
  const struct {
    const char* text;
    std::int32_t number;
  } rows[] = {
      {"18", 18},
      {"022", 22},
      {" 5 ", 5},
      {"-1", -1},
      {"+3", 3},
      {"4 and", 4},
      {"abc", 0},
      {"0x1f", 0},
      {"x1", 0},
      {"1.9", 1},
      {"&#49;2", 12},
      {"4294967301", 5},
      {"99999999999999999999", -1},
      {"<![CDATA[ 6]]>", 6},
      {"<![CDATA[]]>", 0},
  };
  for (const auto& element : elements) {
    for (const auto& row : rows) {
      const std::string open = std::string("<").append(element.name).append(">");
      const std::string close = std::string("</").append(element.name).append(">");
      expectLoads(job(open + row.text + close + open + "77" + close));
      EXPECT_EQ(context().*element.field, row.number) << element.name << " " << row.text;
    }
  }
}

TEST_F(ParameterFile, ReadsTheFirstCharacterOfRedirectStderr) {
  const struct {
    const char* text;
    bool flag;
  } rows[] = {
      {"Yes", true},
      {"yes please", true},
      {"Y", true},
      {"y", true},
      {"True", true},
      {"true", true},
      {"T", true},
      {"1", true},
      {"10", true},
      {"Tomorrow", true},
      {" yes", true},
      {"no", false},
      {"No", false},
      {"N", false},
      {"false", false},
      {"0", false},
      {"2", false},
      {"on", false},
      {"-1", false},
      {"+1", false},
      {"\xc3\xa9", false},
      {"<![CDATA[ yes]]>", false},
      {"<![CDATA[]]>", false},
  };
  for (const auto& row : rows) {
    std::string element = "<redirectStderr>";
    expectLoads(job(element.append(row.text).append("</redirectStderr>")));
    EXPECT_EQ(context().redirectStderr, row.flag) << row.text;
  }
}

TEST_F(ParameterFile, RefusesNumbersAndFlagsWithoutText) {
  for (const std::string name :
       {"TaskNameIdx", "TaskTimeout", "uid", "gid", "umask", "redirectStderr"}) {
    expectFails(job("<" + name + "/>"), invalidSyntax);
    expectFails(job("<" + name + "></" + name + ">"), invalidSyntax);
    expectFails(job("<" + name + ">  </" + name + ">"), invalidSyntax);
    expectFails(job("<" + name + "><!--x-->1</" + name + ">"), invalidSyntax);
    expectFails(job("<" + name + "><b>1</b></" + name + ">"), invalidSyntax);
  }
}

TEST_F(ParameterFile, RequiresTheRootAsTheFirstNode) {
  const std::string valid = job("");
  expectFails("<?xml version='1.0'?>" + valid, invalidSyntax);
  expectFails("<?xml version=`1.0`?>" + valid, invalidSyntax);
  expectFails("<!-- a comment -->" + valid, invalidSyntax);
  expectFails("<!DOCTYPE Job>" + valid, invalidSyntax);
  expectFails("<cmdData><TaskList/><JobParams/></cmdData>", invalidSyntax);
  expectFails("<Job/>", invalidSyntax);
  expectFails("<Job/>" + valid, invalidSyntax);
  expectFails("<Job><x><cmdData/></x></Job>", invalidSyntax);
  expectFails("<Job><cmddata/></Job>", invalidSyntax);
  // Comments and texts of that name are not elements.
  expectFails("<Job><!--cmdData--><cmdData><TaskList/><JobParams/></cmdData></Job>", invalidSyntax);
  expectFails("<Job>cmdData</Job>", invalidSyntax);
  expectLoads("\xef\xbb\xbf" + valid);
  expectLoads("\n  " + valid);
  expectLoads(valid + "<!-- after it -->");
  expectLoads(
      "<any-name a='b'><!-- x --> text <y/><cmdData><TaskList/><JobParams/></cmdData>"
      "</any-name>");
}

TEST_F(ParameterFile, RequiresTheParametersAfterTheTasks) {
  const auto data = [](const std::string& elements) {
    return "<Job><cmdData>" + elements + "</cmdData></Job>";
  };
  expectFails(data(""), invalidSyntax);
  expectFails(data("<TaskList/>"), invalidSyntax);
  expectFails(data("<JobParams/>"), invalidSyntax);
  expectFails(data("<JobParams/><TaskList/>"), invalidSyntax);
  expectFails(data("<TaskList><JobParams/></TaskList>"), invalidSyntax);
  expectLoads(data("<TaskList/><umask>1</umask><!--x--><JobParams/><uid>2</uid>"));
  EXPECT_EQ(context().umask, 1);
  EXPECT_EQ(context().uid, 2);
  expectLoads(data("<JobParams><Param/></JobParams><TaskList/><JobParams/>"));
}

TEST_F(ParameterFile, TakesOneEntryForEachTaskWithText) {
  const struct {
    const char* tasks;
    Strings entries;
  } rows[] = {
      {"", {}},
      {"<Task/>", {}},
      {"<Task><Params/></Task>", {}},
      {"<Task><Params>{a}</Params></Task>", {"a"}},
      {"<Task><Params>{a}</Params></Task><Task/><Task><Params>{c}</Params></Task>", {"a", "c"}},
      {"<Task><x/><Params>x{a{b}c}y</Params><Params>{z}</Params></Task>", {"a{b}c"}},
      {"<!--x--><x/>text<Task><Params>{a}</Params></Task><Other><Params>{o}</Params></Other>"
       "<Task><Params>{b}</Params></Task>",
       {"a", "b"}},
      {"<Task><Params>{a&#9;b}</Params></Task>", {"a\tb"}},
      {"<Task><Params>{a&#x9;&#9;b}</Params></Task>", {"a\t\tb"}},
      {"<Task><Params>{a\tb}</Params></Task>", {"a b"}},
      {"<Task><Params><![CDATA[{a\tb  c}]]></Params></Task>", {"a\tb  c"}},
      {"<Task><Params>{ }</Params></Task>", {" "}},
      {"<Task>{a}</Task>", {}},
  };
  for (const auto& row : rows) {
    expectLoads(jobWithTasks(row.tasks));
    EXPECT_EQ(plain(context().taskList), row.entries) << row.tasks;
  }
}

TEST_F(ParameterFile, RefusesArgumentsAndTasksWithoutBraces) {
  for (const char* text : {"cmd -x", "{}", "{cmd", "cmd}", "()"}) {
    const std::string arguments = "<Arguments>";
    expectFails(job(arguments + text + "</Arguments>"), stripBraceFailed);
    const std::string params = "<Task><Params>";
    expectFails(jobWithTasks(params + text + "</Params></Task>"), stripBraceFailed);
  }
}

TEST_F(ParameterFile, TakesParametersByTheirPlace) {
  const struct {
    const char* params;
    Strings names;
    Strings values;
  } rows[] = {
      {"", {}, {}},
      {"<x/>text<!--Param? no-->", {}, {}},
      {"<Param><Name>{a}</Name><Value>{1}</Value></Param>", {"a"}, {"1"}},
      {"<Param><x/><Name>p{a}s</Name><y/><Value>{1}2}</Value></Param>", {"a"}, {"1}2"}},
      {"<Param><Value>{1}</Value><Name>{a}</Name></Param>", {"a"}, {}},
      {"<Param><Name>{a}</Name></Param><Param><Name>{b}</Name><Value>{2}</Value></Param>",
       {"a", "b"},
       {"2"}},
      {"<Param><Name>{a}</Name><Value/></Param>", {"a"}, {}},
      {"<Param><Name/><Value>{1}</Value></Param>", {}, {"1"}},
      {"<Param><Name>scene</Name><Value>high</Value></Param>", {""}, {""}},
      {"<Param><Name>{}</Name><Value>{}</Value></Param>", {""}, {""}},
      {"<Param><Name>{a}</Name><Value>{1}</Value></Param>"
       "<Param><Name>{a}</Name><Value>{2}</Value></Param>",
       {"a", "a"},
       {"1", "2"}},
      {"<Param><Name>{a}</Name><Name>{z}</Name><Value>{1}</Value><Value>{9}</Value></Param>",
       {"a"},
       {"1"}},
      // before the first and between the first two, other nodes are skipped
      {"<x/>text<!--c--><Param><Name>{a}</Name></Param><x/>text<!--c-->"
       "<Param><Name>{b}</Name></Param>",
       {"a", "b"},
       {}},
      // the third is the node after the second, whatever its name
      {"<Param><Name>{a}</Name><Value>{1}</Value></Param>"
       "<Param><Name>{b}</Name><Value>{2}</Value></Param>"
       "<Extra><Name>{c}</Name><Value>{3}</Value></Extra>"
       "<Param><Name>{d}</Name><Value>{4}</Value></Param>",
       {"a", "b", "c", "d"},
       {"1", "2", "3", "4"}},
      // between the first two, an element of another name is not a parameter
      {"<Param><Name>{a}</Name><Value>{1}</Value></Param>"
       "<Extra><Name>{c}</Name><Value>{3}</Value></Extra>"
       "<Param><Name>{b}</Name><Value>{2}</Value></Param>",
       {"a", "b"},
       {"1", "2"}},
  };
  for (const auto& row : rows) {
    expectLoads(jobWithParams(row.params));
    EXPECT_EQ(plain(context().paramNames), row.names) << row.params;
    EXPECT_EQ(plain(context().paramValues), row.values) << row.params;
  }
}

TEST_F(ParameterFile, RefusesAParameterWithoutANameElement) {
  const std::string good = "<Param><Name>{a}</Name><Value>{1}</Value></Param>";
  for (const std::string bad :
       {"<Param/>", "<Param>text</Param>", "<Param><Value>{1}</Value></Param>",
        "<Param><x><Name>{a}</Name></x></Param>"}) {
    expectFails(jobWithParams(bad), invalidSyntax);
    expectFails(jobWithParams(good + bad), invalidSyntax);
    expectFails(jobWithParams(good + good + bad), invalidSyntax);
  }
  for (const std::string bad : {"<!-- a comment -->", "<Extra/>", "text", "<![CDATA[x]]>"}) {
    expectLoads(jobWithParams(bad + good + bad + good));
    expectFails(jobWithParams(good + good + bad), invalidSyntax);
    expectFails(jobWithParams(good + good + good + bad + good), invalidSyntax);
  }
  expectFails(jobWithParams("<!--Param-->" + good), invalidSyntax);
}

// Nothing is rolled back. Which message comes first shows the order of the steps.
TEST_F(ParameterFile, KeepsWhatItReadBeforeAFailure) {
  expectFails(
      "<Job><cmdData><Arguments>{a}</Arguments><umask>5</umask><uid>6</uid><gid/>"
      "<Outputs>/o</Outputs></cmdData></Job>",
      invalidSyntax);
  EXPECT_EQ(context().arguments, "a");
  EXPECT_EQ(context().outputs, "/o");
  EXPECT_EQ(context().uid, 6);
  EXPECT_EQ(context().umask, 0);

  expectFails(
      "<Job><cmdData><Arguments>a</Arguments><WorkingFolder>/w</WorkingFolder><gid/>"
      "</cmdData></Job>",
      stripBraceFailed);
  EXPECT_EQ(context().workingFolder, "");

  expectFails("<Job><cmdData><umask>5</umask><redirectStderr>n</redirectStderr></cmdData></Job>",
              invalidSyntax);
  EXPECT_EQ(context().umask, 5);
  EXPECT_FALSE(context().redirectStderr);

  expectFails(
      "<Job><cmdData><redirectStderr/><TaskList><Task><Params>x</Params></Task></TaskList>"
      "</cmdData></Job>",
      invalidSyntax);

  expectFails(jobWithTasks("<Task><Params>{a}</Params></Task><Task><Params>b</Params></Task>"
                           "<Task><Params>{c}</Params></Task>"),
              stripBraceFailed);
  EXPECT_EQ(plain(context().taskList), (Strings{"a"}));

  // the tasks are read before the missing parameters are detected
  expectFails(
      "<Job><cmdData><TaskList><Task><Params>{a}</Params></Task><Task><Params>b</Params>"
      "</Task></TaskList></cmdData></Job>",
      stripBraceFailed);
  expectFails(
      "<Job><cmdData><TaskList><Task><Params>{a}</Params></Task></TaskList>"
      "</cmdData></Job>",
      invalidSyntax);
  EXPECT_EQ(plain(context().taskList), (Strings{"a"}));

  expectFails(jobWithParams("<Param><Name>{a}</Name><Value>{1}</Value></Param><Param/>"),
              invalidSyntax);
  EXPECT_EQ(plain(context().paramNames), (Strings{"a"}));
  EXPECT_EQ(plain(context().paramValues), (Strings{"1"}));
}

TEST_F(ParameterFile, ThrowsALengthErrorForReversedBraces) {
  for (const std::string& text : {
           job("<Arguments>}a{</Arguments>"),
           jobWithTasks("<Task><Params>}a{</Params></Task>"),
           jobWithParams("<Param><Name>}a{</Name></Param>"),
           jobWithParams("<Param><Name>{a}</Name><Value>}{</Value></Param>"),
       }) {
    write(text);
    context_.jobFile = path_;
    EXPECT_THROW(loadParameterFile(&context_), std::length_error) << text;
  }
}

TEST_F(ParameterFile, WritesNothingWithoutAFileName) {
  EXPECT_FALSE(load(""));
  EXPECT_EQ(standardError_, "");
}

TEST_F(ParameterFile, NamesAFileItCannotLoadAndTheReason) {
  EXPECT_FALSE(load(path_));
  EXPECT_EQ(standardError_, couldNotLoad("Failed to open file"));
  expectFails("", couldNotLoad("Error document empty."));
  expectFails(" \n", couldNotLoad("Error document empty."));
  expectFails(std::string("\0<Job/>", 7), couldNotLoad("Error document empty."));
  expectFails("no markup", couldNotLoad("Error document empty."));
  expectFails("<", invalidSyntax);  // unknown markup for the library
  expectFails("<Job", couldNotLoad("Failed to read Element name"));
  expectFails("<Job>", couldNotLoad("Error reading Element value."));
  expectFails("<Job><cmdData></Job>", couldNotLoad("Error reading end tag."));
  expectFails("<Job a>", couldNotLoad("Error reading Attributes."));
}

TEST_F(ParameterFile, RefusesWhatIsNotARegularFile) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(load(path_));
  EXPECT_EQ(standardError_, couldNotLoad("Error document empty."));
  unlink(path_.c_str());

  ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
  EXPECT_FALSE(load(path_));
  EXPECT_EQ(standardError_, couldNotLoad("Is a directory"));
  rmdir(path_.c_str());

  path_ = "/dev/zero";
  EXPECT_FALSE(load(path_));
  EXPECT_EQ(standardError_, couldNotLoad("Error document empty."));
  path_ = folder_.file("job.xml");
}

std::string repeat(const std::string& text, std::size_t count) {
  std::string repeated;
  for (std::size_t i = 0; i < count; ++i) repeated += text;
  return repeated;
}

TEST_F(ParameterFile, RefusesElementsNestedTooDeeply) {
  const std::string tooDeep = couldNotLoad("Elements nested too deep.");
  // the root and cmdData count as levels
  const std::size_t most = xmlLimits().depth - 2;
  expectLoads(job(repeat("<x>", most) + repeat("</x>", most)));
  expectFails(job(repeat("<x>", most + 1) + repeat("</x>", most + 1)), tooDeep);
  expectFails(repeat("<x>", 1000000) + repeat("</x>", 1000000), tooDeep);
  expectFails(repeat("<x>", 1000000), tooDeep);
  // many elements and much other markup are not deep
  expectLoads(job(repeat("<x></x>", 100000)));
  expectLoads(job("<!--" + repeat("<x>", 100000) + "--><![CDATA[" + repeat("<x>", 100000) + "]]>" +
                  "<y a='" + repeat("<x>", 100000) + "'/>"));
}

TEST_F(ParameterFile, RefusesTooManyNestedElements) {
  const std::size_t depth = 1000;
  const auto nested = [&](std::size_t count) {
    return repeat("<x>", depth) + repeat("<y/>", count) + repeat("</x>", depth);
  };
  // nodes outside the root, cmdData and the thousand levels add little
  const std::size_t most = maxLevels / (depth + 2);
  expectLoads(job(nested(most - 1000)));
  expectFails(job(nested(most + 1)), couldNotLoad("Too many nested elements."));
}

TEST_F(ParameterFile, RefusesElementsWithTooManyAttributes) {
  const auto element = [](std::size_t count) {
    std::string text = "<x";
    for (std::size_t i = 0; i < count; ++i) text += " a" + std::to_string(i) + "='1'";
    return text + "/>";
  };
  const std::string tooMany = couldNotLoad("Too many attributes.");
  expectLoads(job(element(maxAttributes)));
  expectFails(job(element(maxAttributes + 1)), tooMany);
  expectFails(job(repeat(element(maxAttributes), 4) + element(201)), tooMany);
}

// A byte that announces a longer character at the end of the file must not make the library read
// past the text.
TEST_F(ParameterFile, SurvivesACharacterCutShortByTheEnd) {
  for (const std::string lead : {"\xc3", "\xe2", "\xf0", "\xe2\x82", "\xf0\x9f\x98"}) {
    expectFails("<Job>text" + lead, couldNotLoad("Error reading Element value."));
    expectFails("<Job a='" + lead, couldNotLoad("Error parsing Element."));
  }
}

TEST_F(ParameterFile, KeepsInvalidUtf8AsItIs) {
  expectLoads(job("<Outputs>a\xff\x80z</Outputs>"));
  EXPECT_EQ(context().outputs, "a\xff\x80z");
}

TEST_F(ParameterFile, NormalizesLineEnds) {
  expectLoads(job("<Outputs><![CDATA[a\r\nb\rc\nd]]></Outputs>"));
  EXPECT_EQ(context().outputs, "a\nb\nc\nd");
}

}  // namespace
}  // namespace runlet
