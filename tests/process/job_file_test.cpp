#include <sys/stat.h>
#include <unistd.h>

#include "adapter_test.h"

namespace runlet_test {
namespace {

constexpr char invalidSyntax[] = "Runlet adapter: Invalid XML job syntax.\n";
constexpr char stripBraceFailed[] = "Runlet adapter: Strip brace failed.\n";

class JobFile : public AdapterTest {
 protected:
  // Asserts the same result for both requests that load a job file.
  void expectRefused(const std::string& text, const std::string& error,
                     const std::string& status = "exit 255") {
    SCOPED_TRACE(text.substr(0, 300));
    folder_.write("job.xml", text);
    expectRefusedFile(error, status);
  }

  void expectRefusedFile(const std::string& error, const std::string& status = "exit 255") {
    expectResult(run(newTask()), "", error, status);
    expectResult(run({"-o", "PingTask", "-j", jobFile_}), "", error, status);
  }

  std::string couldNotLoad(const std::string& reason) const {
    return "Runlet adapter: Could not load parameter file " + jobFile_ + ". Error='" + reason +
           "'.Exiting.\n";
  }
};

std::string job(const std::string& elements, const std::string& tasks, const std::string& params) {
  return "<Job><cmdData>" + elements + "<TaskList>" + tasks + "</TaskList><JobParams>" + params +
         "</JobParams></cmdData></Job>";
}

TEST_F(JobFile, ThatCannotBeLoadedIsNamedWithTheReason) {
  expectRefusedFile(couldNotLoad("Failed to open file"));
  expectRefused("", couldNotLoad("Error document empty."));
  expectRefused("plain text", couldNotLoad("Error document empty."));
  expectRefused("<Job><cmdData></Job>", couldNotLoad("Error reading end tag."));
  expectRefused("<Job a='1' a='2'/>", couldNotLoad("Error parsing Element."));
}

TEST_F(JobFile, ThatIsADirectoryIsRefused) {
  ASSERT_EQ(mkdir(jobFile_.c_str(), 0700), 0);
  expectRefusedFile(couldNotLoad("Is a directory"));
}

TEST_F(JobFile, ThatIsAPipeIsRefusedWithoutWaiting) {
  ASSERT_EQ(mkfifo(jobFile_.c_str(), 0600), 0);
  expectRefusedFile(couldNotLoad("Error document empty."));
}

TEST_F(JobFile, ThatMayNotBeReadIsRefused) {
  folder_.write("job.xml", Job().text(), 0000);
  expectResult(runProcess(unprivileged(newTask())), "", couldNotLoad("Failed to open file"),
               "exit 255");
}

TEST_F(JobFile, ThatIsNestedTooDeeplyIsRefused) {
  std::string text;
  for (int i = 0; i < 1000000; ++i) text += "<a>";
  expectRefused(text, couldNotLoad("Elements nested too deep."));
}

// A byte that announces a longer character makes the library skip the NUL that ends the text, and
// read what would be left of a longer text.
TEST_F(JobFile, ThatHidesItsDepthAfterItsEndIsRefused) {
  std::string lineEnds;
  std::string elements;
  for (int i = 0; i < 300000; ++i) {
    lineEnds += "\r\n\r\n\r\n";
    elements += "<b>";
  }
  const std::string noValue = couldNotLoad("Error reading Element value.");
  expectRefused("<a>\xf0" + std::string("\0xx", 3) + elements, noValue);
  expectRefused("<a>\xc3" + std::string("\0", 1) + elements, noValue);
  expectRefused("<a x=\"\xf0" + std::string("\0xx\">", 5) + elements,
                couldNotLoad("Error parsing Element."));
  expectRefused("<a><!--" + lineEnds + elements + "-->x\xf0", noValue);
}

TEST_F(JobFile, WithoutItsRequiredElementsIsRefused) {
  const std::string good = job("", "", "");
  for (const std::string& text : {
           std::string("<Job/>"),
           std::string("<cmdData><TaskList/><JobParams/></cmdData>"),
           std::string("<Job><cmdData><JobParams/></cmdData></Job>"),
           std::string("<Job><cmdData><TaskList/></cmdData></Job>"),
           std::string("<Job><cmdData><JobParams/><TaskList/></cmdData></Job>"),
           std::string("<?xml version='1.0'?>").append(good),
           std::string("<!-- first -->").append(good),
       }) {
    expectRefused(text, invalidSyntax);
  }
}

TEST_F(JobFile, WithAnEmptyNumberOrFlagIsRefused) {
  for (const char* name : {"TaskNameIdx", "TaskTimeout", "uid", "gid", "umask", "redirectStderr"}) {
    expectRefused(job(std::string("<").append(name).append("/>"), "", ""), invalidSyntax);
  }
}

TEST_F(JobFile, WithAParameterWithoutANameIsRefused) {
  const std::string good = "<Param><Name>{a}</Name><Value>{b}</Value></Param>";
  expectRefused(job("", "", "<Param/>"), invalidSyntax);
  expectRefused(job("", "", good + "<Param><Value>{b}</Value></Param>"), invalidSyntax);
  expectRefused(job("", "", good + good + "<!-- a comment -->"), invalidSyntax);
}

TEST_F(JobFile, WithoutUsableBracesIsRefused) {
  for (const char* text : {"cmd -x", "{}", "{cmd", "cmd}"}) {
    expectRefused(job(std::string("<Arguments>").append(text).append("</Arguments>"), "", ""),
                  stripBraceFailed);
    expectRefused(
        job("", std::string("<Task><Params>").append(text).append("</Params></Task>"), ""),
        stripBraceFailed);
  }
}

// The string library's length error is not caught, so the process aborts.
TEST_F(JobFile, WithReversedBracesEndsTheProcess) {
  const std::string error = terminateText("std::length_error", "basic_string::_M_replace");
  for (const std::string& text : {
           job("<Arguments>}cmd{</Arguments>", "", ""),
           job("", "<Task><Params>}a{</Params></Task>", ""),
           job("", "", "<Param><Name>}a{</Name><Value>{b}</Value></Param>"),
           job("", "", "<Param><Name>{a}</Name><Value>}b{</Value></Param>"),
       }) {
    expectRefused(text, error, "signal 6");
  }
}

// The tasks and parameters of a file, as seen in the commands of all its tasks.
TEST_F(JobFile, GivesTasksAndParametersByTheirPlace) {
  const std::string a = "<Param><Name>{a}</Name><Value>{1}</Value></Param>";
  const std::string b = "<Param><Name>{b}</Name><Value>{2}</Value></Param>";
  const struct {
    std::string tasks;
    std::string params;
    std::vector<std::string> outputs;  // number, fields 1 and 2, parameters 1 to 3
  } rows[] = {
      {"", "", {}},
      {"<Task><Params>{x&#9;y}</Params></Task>", "", {"1|x|y|Undefined|Undefined|Undefined"}},
      {"<Task><Params><![CDATA[{x\ty}]]></Params></Task>", a, {"1|x|y|1|Undefined|Undefined"}},
      // typed as such, a TAB becomes a space
      {"<Task><Params>{x\ty}</Params></Task>", a, {"1|x y|Undefined|1|Undefined|Undefined"}},
      {"<Task><Params>{x&#9;}</Params></Task>", a, {"1|x|Undefined|1|Undefined|Undefined"}},
      {"<Task><Params>{x&#9;&#9;z}</Params></Task>", a, {"1|x||1|Undefined|Undefined"}},
      // a task without text is ignored
      {"<Task><Params>{x}</Params></Task><Task/><Task><Params>{z}</Params></Task>",
       a,
       {"1|x|Undefined|1|Undefined|Undefined", "2|z|Undefined|1|Undefined|Undefined"}},
      {"<Task><Params>{x}</Params></Task>", a + b, {"1|x|Undefined|1|2|Undefined"}},
      {"<Task><Params>{x}</Params></Task>", a + a, {"1|x|Undefined|1|1|Undefined"}},
      // a name without braces counts
      {"<Task><Params>{x}</Params></Task>",
       "<Param><Name>a</Name><Value>{1}</Value></Param>" + b,
       {"1|x|Undefined|1|2|Undefined"}},
      // from the third on, any element is a parameter
      {"<Task><Params>{x}</Params></Task>",
       a + b + "<Extra><Name>{c}</Name><Value>{3}</Value></Extra>",
       {"1|x|Undefined|1|2|3"}},
  };
  for (const auto& row : rows) {
    const std::string text =
        job("<Arguments>say {/bin/echo %tn|%tp1|%tp2|%jp1|%jp2|%jp3} so</Arguments><uid>" +
                std::to_string(getuid()) + "</uid><gid>" + std::to_string(getgid()) + "</gid>",
            row.tasks, row.params);
    SCOPED_TRACE(text);
    folder_.write("job.xml", text);
    std::string output;
    for (const std::string& line : row.outputs) {
      output += calling("/bin/echo " + line, folder()) + processStarted + line + "\n";
    }
    expectResult(run(newTask(1, 9)), output, "", "exit 0");
  }
}

// A value before its name is ignored, so the next one gets the first number.
TEST_F(JobFile, MovesValuesUpIfOneIsMissing) {
  folder_.write("job.xml",
                job("<Arguments>{/bin/echo %jp1}</Arguments><uid>" + std::to_string(getuid()) +
                        "</uid><gid>" + std::to_string(getgid()) + "</gid>",
                    "<Task><Params>{x}</Params></Task>",
                    "<Param><Value>{1}</Value><Name>{a}</Name></Param>"
                    "<Param><Name>{b}</Name><Value>{2}</Value></Param>"));
  expectResult(run(newTask()), calling("/bin/echo 2", folder()) + processStarted + "2\n", "",
               "exit 0");
}

TEST_F(JobFile, IsReadFromTheFolderTheAdapterWasStartedIn) {
  write(Job());
  ProcessOptions options = adapter({"-o", "PingTask", "-j", "job.xml"});
  options.folder = folder();
  expectResult(runProcess(options), "", "", "exit 0");
}

using TaskCommand = AdapterTest;

Job exampleJob() {
  Job job;
  job.tasks = {"a", "b", "shot_A\t101\t\t250"};
  job.params = {{"scene", "/jobs/a.scn"}, {"quality", "high"}};
  return job;
}

// A third name without a value; the test's job builder gives every name one.
std::string withThirdName(const Job& job) {
  std::string text = job.text();
  return text.replace(text.find("</JobParams>"), 0, "<Param><Name>{extra}</Name></Param>");
}

TEST_F(TaskCommand, IsExpandedForTheTask) {
  const std::string zeros31(31, '0');
  const struct {
    const char* argumentTemplate;
    std::string line;
  } rows[] = {
      {"render -s %tn", "render -s 3"},
      {"render -s %4tn", "render -s 0003"},
      {"-f %tp2 -t %tp4", "-f 101 -t 250"},
      {"-f %6tp2", "-f 000101"},
      {"[%tp3]", "[]"},
      {"[%tp5]", "[Undefined]"},
      {"[%12tp5]", "[000Undefined]"},
      {"[%tp]", "[Undefined]"},
      {"%jp1 %jp2", "/jobs/a.scn high"},
      {"%jp4 %jp0", "Undefined Undefined"},
      {"100%% done", "100% done"},
      {"50%x 50%5x", "50x 50x"},
      {"%2tp2 %0tn", "101 3"},
      {"%jp", "Undefined"},
      {"%tp12%3tn", "Undefined" + zeros31},
      {"plain", "plain"},
      {"end%", "end"},
      {"end%12", "end"},
      {"%4tn_%2tn", "0003_" + zeros31},
      {"%40tn", zeros31},
  };
  for (const auto& row : rows) {
    Job job = exampleJob();
    job.arguments = std::string("/bin/echo ").append(row.argumentTemplate);
    folder_.write("job.xml", withThirdName(job));
    std::string line = "/bin/echo ";
    line += row.line;
    SCOPED_TRACE(line);
    expectResult(run(newTask(3)), calling(line, folder()) + processStarted + row.line + "\n", "",
                 "exit 0");
  }
}

TEST_F(TaskCommand, ThatCannotBeExpandedStartsNothing) {
  for (const std::string& argumentTemplate :
       {std::string("/bin/echo %ta"), std::string("/bin/echo %jx"), std::string("/bin/echo %t"),
        "/bin/echo " + std::string(3990, 'x'), std::string("/bin/echo %9999tp1")}) {
    Job job = exampleJob();
    job.arguments = argumentTemplate;
    write(job);
    expectResult(run(newTask(1, 3)), "", "Runlet adapter: Process fill-in for arguments failed.\n",
                 "exit 255");
  }
}

TEST_F(TaskCommand, MayBe3999BytesLong) {
  Job job;
  const std::string word(3999 - 10, 'x');
  job.arguments = "/bin/echo " + word;
  write(job);
  expectResult(run(newTask()),
               calling("/bin/echo " + word, folder()) + processStarted + word + "\n", "", "exit 0");
}

// A number within the names but without a value. The library's out-of-range error is not caught.
TEST_F(TaskCommand, WithAMissingValueEndsTheProcess) {
  Job job = exampleJob();
  job.arguments = "/bin/echo %jp3";
  folder_.write("job.xml", withThirdName(job));
  expectResult(run(newTask()), "",
               terminateText("std::out_of_range",
                             "vector::_M_range_check: __n (which is 2) >= this->size() "
                             "(which is 2)"),
               "signal 6");
}

TEST_F(TaskCommand, IsNotExpandedAgainInsideAValue) {
  Job job;
  job.arguments = "/bin/echo %tp1";
  job.tasks = {"%tx is not expanded", "second"};
  write(job);
  expectResult(run(newTask(1, 2)),
               calling("/bin/echo %tx is not expanded", folder()) + processStarted +
                   "%tx is not expanded\n" + calling("/bin/echo second", folder()) +
                   processStarted + "second\n",
               "", "exit 0");
}

}  // namespace
}  // namespace runlet_test
