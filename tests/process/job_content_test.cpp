// Job files with additional, missing or reordered elements.

#include <unistd.h>

#include "adapter_test.h"

namespace runlet_test {
namespace {

constexpr char invalidSyntax[] = "Runlet adapter: Invalid XML job syntax.\n";
constexpr char stripBraceFailed[] = "Runlet adapter: Strip brace failed.\n";
constexpr char noArguments[] = "<Arguments>{}</Arguments>";
constexpr char noUid[] = "<uid/>";
constexpr char badTask[] = "<TaskList><Task><Params>{}</Params></Task></TaskList>";
constexpr char reversedTask[] = "<TaskList><Task><Params>}{</Params></Task></TaskList>";
constexpr char emptyTasks[] = "<TaskList/>";
constexpr char noParams[] = "<JobParams/>";
constexpr char reversedName[] = "<Param><Name>}a{</Name></Param>";
constexpr char goodParam[] = "<Param><Name>{a}</Name><Value>{1}</Value></Param>";

std::string join(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += part;
  return text;
}

std::string inRoot(const std::vector<std::string>& elements) {
  return "<Job><cmdData>" + join(elements) + "</cmdData></Job>";
}

std::string jobParams(const std::vector<std::string>& params) {
  return "<JobParams>" + join(params) + "</JobParams>";
}

class JobContent : public AdapterTest {
 protected:
  // The elements of a job that the caller may run, without the lists.
  std::string command(const std::string& argumentTemplate) const {
    return "<Arguments>{/bin/true " + argumentTemplate + "}</Arguments><uid>" +
           std::to_string(getuid()) + "</uid><gid>" + std::to_string(getgid()) + "</gid>";
  }

  // Asserts that the first tasks of the job `text` run with these arguments, in order.
  void expectCommands(const std::string& text, const std::vector<std::string>& arguments) {
    SCOPED_TRACE(text.substr(0, 500));
    folder_.write("job.xml", text);
    std::string output;
    for (const std::string& words : arguments) {
      output += calling("/bin/true " + words, folder()) + processStarted;
    }
    expectResult(run(newTask(1, 9)), output, "", "exit 0");
  }
};

// Two faults each; the first one is reported.
TEST_F(JobContent, IsCheckedInAFixedOrder) {
  const std::string abort = terminateText("std::length_error", "basic_string::_M_replace");
  const struct {
    std::string text;
    std::string error;
    const char* status;
  } rows[] = {
      {inRoot({noUid, noArguments, emptyTasks, noParams}), stripBraceFailed, "exit 255"},
      {inRoot({noArguments}), stripBraceFailed, "exit 255"},
      {inRoot({badTask, noUid, noParams}), invalidSyntax, "exit 255"},
      {inRoot({reversedTask, "<redirectStderr/>", noParams}), invalidSyntax, "exit 255"},
      {inRoot({badTask}), stripBraceFailed, "exit 255"},
      {inRoot({noParams, badTask}), stripBraceFailed, "exit 255"},
      {inRoot({noParams, reversedTask}), abort, "signal 6"},
      {inRoot({"<Arguments>}{</Arguments>", noUid}), abort, "signal 6"},
      {inRoot({emptyTasks, jobParams({reversedName, "<Param/>"})}), abort, "signal 6"},
      {inRoot({emptyTasks, jobParams({"<Param/>", reversedName})}), invalidSyntax, "exit 255"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    folder_.write("job.xml", row.text);
    expectResult(run(newTask()), "", row.error, row.status);
    expectResult(run({"-o", "PingTask", "-j", jobFile_, "-e", "5"}), "", row.error, row.status);
  }
}

// Text counts only if it is the first node of an element.
TEST_F(JobContent, IgnoresTextAfterAComment) {
  folder_.write("job.xml", inRoot({"<umask><!-- octal 022 -->18</umask>", emptyTasks, noParams}));
  expectResult(run(newTask()), "", invalidSyntax, "exit 255");
  const std::string tasks =
      "<TaskList><Task><Params><!-- one -->{a}</Params></Task>"
      "<Task><Params>{b}<!-- two -->{c}</Params></Task></TaskList>";
  expectCommands(inRoot({command("%tn%tp1"), tasks, noParams}), {"1b"});
}

TEST_F(JobContent, MayBeginWithAByteOrderMarkOrSpaceButNotWithAnotherNode) {
  const std::string good = inRoot({emptyTasks, noParams});
  for (const std::string front : {"", "\n\n  ", "\xef\xbb\xbf"}) {
    expectCommands(front + good, {});
  }
  for (const std::string front : {"<!DOCTYPE Job>", "<?xml version='1.0'?>", "<other/>"}) {
    SCOPED_TRACE(front);
    folder_.write("job.xml", front + good);
    expectResult(run(newTask()), "", invalidSyntax, "exit 255");
  }
  expectCommands(good + "<!-- after -->", {});
}

TEST_F(JobContent, HasItsElementsInAnyOrderAndTheFirstOfEachKind) {
  const std::string tasks = "<TaskList><Task><Params>{a}</Params></Task></TaskList>";
  const std::string more = "<TaskList><Task><Params>{x}</Params></Task></TaskList>";
  const std::string params = jobParams({goodParam});
  const std::string moreParams = jobParams({"<Param><Name>{a}</Name><Value>{9}</Value></Param>"});
  const std::string own = command("%tp1 %jp1");
  expectCommands(inRoot({tasks, params, own}), {"a 1"});
  expectCommands(inRoot({tasks, own, params}), {"a 1"});
  expectCommands(inRoot({own, tasks, more, params, moreParams, command("again")}), {"a 1"});
  expectCommands(inRoot({moreParams, own, tasks, params}), {"a 1"});
  // the parameters must come after the tasks that count
  folder_.write("job.xml", inRoot({own, moreParams, tasks}));
  expectResult(run(newTask()), "", invalidSyntax, "exit 255");
}

TEST_F(JobContent, IgnoresWhatIsNotATask) {
  const std::string tasks =
      "<TaskList><!-- c --><Job><Params>{j}</Params></Job><Task><Params>{a}</Params></Task>"
      "<task><Params>{t}</Params></task><Task/><Task><Params/></Task><Task><params>{p}</params>"
      "</Task><Task><Other/><Params>x{b}y</Params><Params>{second}</Params></Task></TaskList>";
  expectCommands(inRoot({command("%tn%tp1"), tasks, noParams}), {"1a", "2b"});
}

TEST_F(JobContent, PairsParametersByPlace) {
  const std::string tasks = "<TaskList><Task><Params>{t}</Params></Task></TaskList>";
  const std::string second = "<Param><Name>{b}</Name><Value>{2}</Value></Param>";
  const struct {
    std::vector<std::string> params;
    const char* argumentTemplate;
    const char* arguments;
  } rows[] = {
      // nodes between the first and the second are not parameters
      {{goodParam, "<Extra><Name>{x}</Name><Value>{9}</Value></Extra>", second},
       "%jp1 %jp2 %jp3",
       "1 2 Undefined"},
      {{"<Extra/>", goodParam}, "%jp1 %jp2", "1 Undefined"},
      {{goodParam, "<!-- c -->"}, "%jp1 %jp2", "1 Undefined"},
      // a value need not follow immediately
      {{"<Param><Name>{a}</Name><Other/><Value>{1}</Value></Param>"}, "%jp1", "1"},
      {{"<Param><Value>{9}</Value><Name>{a}</Name><Value>{1}</Value></Param>"}, "%jp1", "1"},
      // a name without a value, so the next value gets its number
      {{"<Param><Name>{a}</Name></Param>", second}, "%jp1", "2"},
      {{"<Param><Name>{a}</Name><Value/></Param>", second}, "%jp1", "2"},
      // a value without a name is unreachable, but shifts later ones
      {{"<Param><Name/><Value>{9}</Value></Param>", second}, "%jp1 %jp2", "9 Undefined"},
      // an empty value, padded like any other
      {{"<Param><Name>{a}</Name><Value>1</Value></Param>"}, "[%jp1][%3jp1]", "[][000]"},
      {{"<Param><Name>{a}</Name><Value>x{y{z}&#9;}w</Value></Param>"}, "[%jp1]", "[y{z}\t]"},
      {{goodParam, second, "<Extra><Name>{x}</Name><Value>{3}</Value></Extra>"}, "%jp3", "3"},
  };
  for (const auto& row : rows) {
    expectCommands(inRoot({command(row.argumentTemplate), tasks, jobParams(row.params)}),
                   {row.arguments});
  }
}

TEST_F(JobContent, HasTextsWithoutTheSpaceAroundThem) {
  const std::string tasks = "<TaskList><Task><Params> \n {a \n\t b} </Params></Task></TaskList>";
  const std::string work = folder_.makeFolder("w o r k");
  folder_.write("job.xml",
                inRoot({command("[%tp1]"), tasks, noParams,
                        "<WorkingFolder>\n  " + folder() + "/w  o\tr\nk  ", "</WorkingFolder>"}));
  expectResult(run(newTask()), calling("/bin/true [a b]", work) + processStarted, "", "exit 0");
}

// Digits of earlier numbers affect a width in the same command, but not in the next.
TEST_F(JobContent, StartsEachExpansionWithoutLeftoverDigits) {
  const std::string tasks =
      "<TaskList><Task><Params>{x}</Params></Task><Task><Params>{y}</Params></Task></TaskList>";
  const struct {
    const char* argumentTemplate;
    std::vector<std::string> arguments;
  } rows[] = {
      {"%2tn %tp1234", {"01 Undefined", "02 Undefined"}},
      // the number after a width terminates it, and leaves the digits beyond its own end
      {"%5tp1 %3tn", {"0000x 001", "0000y 002"}},
      {"%1234%%2tn", {"%" + std::string(31, '0'), "%" + std::string(31, '0')}},
      {"%12%%9tn", {"%" + std::string(31, '0'), "%" + std::string(31, '0')}},
      {"%12tp1 %45tn",
       {std::string(11, '0') + "x " + std::string(31, '0'),
        std::string(11, '0') + "y " + std::string(31, '0')}},
  };
  for (const auto& row : rows) {
    expectCommands(inRoot({command(row.argumentTemplate), tasks, noParams}), row.arguments);
  }
}

}  // namespace
}  // namespace runlet_test
