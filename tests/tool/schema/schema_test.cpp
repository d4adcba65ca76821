// The schema of job files: its output, and what it accepts and rejects.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "process.h"
#include "programs.h"
#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

const std::string sources = sourceFolder;
const std::string schemaPath = sources + "/share/runlet-job/job.rng";

ProcessResult run(std::vector<std::string> arguments) {
  ProcessOptions options;
  options.arguments = std::move(arguments);
  return runProcess(options);
}

// The output of xmllint for the job file at `path`; empty if it is valid.
std::string complaintOf(const std::string& path) {
  const ProcessResult result = run({"/usr/bin/xmllint", "--noout", "--relaxng", schemaPath, path});
  const std::string status = describeStatus(result.waitStatus);
  return status == "exit 0" ? "" : status + "\n" + result.error;
}

// The status of xmllint for a file that is well-formed but not valid.
constexpr char invalid[] = "exit 3\n";

std::string complaintOfText(const std::string& text) {
  const TempFolder folder;
  return complaintOf(folder.write("job.xml", text));
}

TEST(Schema, IsPrintedAsInstalled) {
  expectTool(runTool({"schema"}), readFile(schemaPath), "", "exit 0");
}

TEST(Schema, ThatCannotBePrintedIsReported) {
  ProcessOptions options = tool({"schema"});
  options.prepare = [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); };
  expectTool(runProcess(options), "",
             "runlet-job: cannot write to standard output: No space left on device\n", "exit 2");
}

constexpr char arguments[] = "<Arguments>{/bin/echo %tn}</Arguments>";
constexpr char gid[] = "<gid>100</gid>";
constexpr char tasks[] = "<TaskList><Task><Params>{one}</Params></Task></TaskList>";
constexpr char noParams[] = "<JobParams/>";

// A job file with these elements of cmdData.
std::string jobOf(const std::string& elements) {
  return "<Job><cmdData>" + elements + "</cmdData></Job>";
}

// The required elements, and one more.
std::string with(const std::string& element) {
  return jobOf(element + arguments + gid + tasks + noParams);
}

std::string withArguments(const std::string& text) {
  return jobOf("<Arguments>" + text + "</Arguments>" + gid + tasks + noParams);
}

std::string withTasks(const std::string& taskElements) {
  return jobOf(arguments + (gid + ("<TaskList>" + taskElements + "</TaskList>")) + noParams);
}

std::string withParams(const std::string& params) {
  return jobOf(arguments + (gid + std::string(tasks)) + "<JobParams>" + params + "</JobParams>");
}

struct Row {
  const char* why;
  std::string job;
};

// Two parameters, after which the adapter takes every node for one.
constexpr char twoParams[] =
    "<Param><Name>{a}</Name><Value>{1}</Value></Param>"
    "<Param><Name>{b}</Name><Value>{2}</Value></Param>";

const Row accepted[] = {
    {"nothing but what is needed", with("")},
    {"the root has any name but cmdData",
     "<farm-job>" + with("").substr(5, with("").size() - 11) + "</farm-job>"},
    {"attributes of the root are for others", "<Job version=\"7\">" + with("").substr(5)},
    {"elements in another order", jobOf(gid + (tasks + std::string(arguments)) + noParams)},
    {"elements between TaskList and JobParams",
     jobOf(tasks + (gid + std::string(arguments)) + noParams)},
    {"elements after JobParams", jobOf(tasks + (noParams + std::string(gid)) + arguments)},
    {"a comment in cmdData", with("<!-- two lines a day -->")},
    {"braces inside of the braces", withArguments("{awk '{print}' %tp1}")},
    {"white space around the braces", withArguments("\n  {ls}\n  ")},
    {"a line break inside of the braces", withArguments("{ls\n  -l}")},
    {"every kind of placeholder", withArguments("{a %tn %4tn %tp1 %6tp12 %jp2 %3jp01 100%%}")},
    {"text in a CDATA section", withArguments("<![CDATA[{ls > a & b}]]>")},
    {"a working folder", with("<WorkingFolder>/srv/shots/two words</WorkingFolder>")},
    {"white space around a folder", with("<WorkingFolder>\n /srv\n</WorkingFolder>")},
    {"folders that are not used", with("<LogFolder>logs</LogFolder><Outputs>*.png</Outputs>")},
    {"a column for the names", with("<TaskNameIdx>1</TaskNameIdx>")},
    {"a time limit of a minute", with("<TaskTimeout>1</TaskTimeout>")},
    {"the longest time limit", with("<TaskTimeout>35791</TaskTimeout>")},
    {"root, explicitly requested", with("<uid>0</uid>")},
    {"white space around a number", with("<uid> 1000\n</uid>")},
    {"the greatest user", with("<uid>2147483647</uid>")},
    {"a mask for nobody else", with("<umask>63</umask>")},
    {"no mask", with("<umask>0</umask>")},
    {"white space around a mask", with("<umask> 18 </umask>")},
    {"the whole mask", with("<umask>511</umask>")},
    {"standard error is joined", with("<redirectStderr>Yes</redirectStderr>")},
    {"the same, shorter", with("<redirectStderr>t</redirectStderr>")},
    {"the same as a number", with("<redirectStderr>1</redirectStderr>")},
    {"standard error stays", with("<redirectStderr> no </redirectStderr>")},
    {"the same, longer", with("<redirectStderr>False</redirectStderr>")},
    {"the same in other words", with("<redirectStderr>off</redirectStderr>")},
    {"several fields", withTasks("<Task><Params>{1-10&#9;1&#9;10}</Params></Task>")},
    {"several tasks",
     withTasks("<Task><Params>{a}</Params></Task><Task><Params>{b}</Params></Task>")},
    {"a task that is a space", withTasks("<Task><Params>{ }</Params></Task>")},
    {"parameters", withParams(twoParams)},
    {"a third parameter",
     withParams(twoParams + std::string("<Param><Name>{c}</Name><Value>{3}</Value></Param>"))},
    {"an empty value", withParams("<Param><Name>{a}</Name><Value>{}</Value></Param>")},
};

const Row refused[] = {
    {"cmdData is the root",
     "<cmdData>" + (arguments + (gid + (tasks + std::string(noParams)))) + "</cmdData>"},
    {"no cmdData", "<Job/>"},
    {"two cmdData", "<Job>" + with("").substr(5, with("").size() - 11) +
                        with("").substr(5, with("").size() - 11) + "</Job>"},
    {"cmdData is deeper", "<Farm>" + with("") + "</Farm>"},
    {"a namespace", "<Job xmlns=\"urn:x-farm\">" + with("").substr(5)},
    {"no Arguments: an empty command", jobOf(gid + (tasks + std::string(noParams)))},
    {"no gid: nothing is started", jobOf(arguments + (tasks + std::string(noParams)))},
    {"no TaskList", jobOf(arguments + (gid + std::string(noParams)))},
    {"no JobParams", jobOf(arguments + (gid + std::string(tasks)))},
    {"JobParams before TaskList", jobOf(arguments + (gid + (noParams + std::string(tasks))))},
    {"a repeated element", with("<uid>7</uid><uid>8</uid>")},
    {"an unknown element", with("<Priority>7</Priority>")},
    {"an element in other letters", with("<workingFolder>/srv</workingFolder>")},
    {"an attribute that nobody reads", with("<uid name=\"ann\">7</uid>")},
    {"text between elements", with("<uid>7</uid>7")},
    {"an element in a text", with("<uid>7<b>8</b></uid>")},
    {"empty Arguments", withArguments("")},
    {"Arguments without braces", withArguments("ls")},
    {"nothing between the braces", withArguments("{}")},
    {"only white space between the braces", withArguments("{ \n }")},
    {"a brace that is missing", withArguments("{ls")},
    {"braces in the wrong order", withArguments("}ls{")},
    {"text before the braces", withArguments("nice {ls}")},
    {"text after the braces", withArguments("{ls} -l")},
    {"a %t that is not a placeholder", withArguments("{ls %tx}")},
    {"a %t at the end", withArguments("{ls %t}")},
    {"a %j that is not a placeholder", withArguments("{ls %jn}")},
    {"a field without a number", withArguments("{ls %tp}")},
    {"parameter 0", withArguments("{ls %jp0}")},
    {"a percent sign that would be dropped", withArguments("{ls 50%x}")},
    {"a percent sign at the end", withArguments("{ls 50%}")},
    {"a relative folder", with("<WorkingFolder>shots</WorkingFolder>")},
    {"a folder in braces", with("<WorkingFolder>{/srv}</WorkingFolder>")},
    {"an empty number", with("<TaskNameIdx/>")},
    {"an empty time limit", with("<TaskTimeout></TaskTimeout>")},
    {"a time limit of 0", with("<TaskTimeout>0</TaskTimeout>")},
    {"a time limit that wraps around", with("<TaskTimeout>35792</TaskTimeout>")},
    {"a unit after a number", with("<TaskTimeout>30 min</TaskTimeout>")},
    {"an empty uid", with("<uid/>")},
    {"a name for a uid", with("<uid>ann</uid>")},
    {"a uid that means that there is none", with("<uid>-1</uid>")},
    {"a uid beyond 32 bits", with("<uid>4294967296</uid>")},
    {"a hexadecimal uid", with("<uid>0x10</uid>")},
    {"a mask that looks octal", with("<umask>022</umask>")},
    {"a mask beyond nine bits", with("<umask>512</umask>")},
    {"a negative mask", with("<umask>-1</umask>")},
    {"an empty mask", with("<umask/>")},
    {"on would mean no", with("<redirectStderr>on</redirectStderr>")},
    {"join would mean no", with("<redirectStderr>join</redirectStderr>")},
    {"2 would mean no", with("<redirectStderr>2</redirectStderr>")},
    {"an empty flag", with("<redirectStderr/>")},
    {"no tasks", withTasks("")},
    {"a task without Params", withTasks("<Task/>")},
    {"a task with two Params", withTasks("<Task><Params>{a}</Params><Params>{b}</Params></Task>")},
    {"empty Params", withTasks("<Task><Params/></Task>")},
    {"Params without braces", withTasks("<Task><Params>a</Params></Task>")},
    {"nothing between the braces of Params", withTasks("<Task><Params>{}</Params></Task>")},
    {"Params in the wrong place", withTasks("<Params>{a}</Params>")},
    {"a parameter without a value", withParams("<Param><Name>{a}</Name></Param>")},
    {"a parameter without a name", withParams("<Param><Value>{1}</Value></Param>")},
    {"a value before its name", withParams("<Param><Value>{1}</Value><Name>{a}</Name></Param>")},
    {"a name without braces", withParams("<Param><Name>a</Name><Value>{1}</Value></Param>")},
    {"a value without braces", withParams("<Param><Name>{a}</Name><Value>1</Value></Param>")},
    {"an empty value without braces", withParams("<Param><Name>{a}</Name><Value/></Param>")},
    {"a third parameter of another name",
     withParams(twoParams + std::string("<Extra><Name>{c}</Name><Value>{3}</Value></Extra>"))},
};

TEST(Schema, AcceptsWhatTheAdapterReadsAsWritten) {
  for (const Row& row : accepted) {
    EXPECT_EQ(complaintOfText(row.job), "") << row.why << "\n" << row.job;
  }
}

TEST(Schema, RefusesWhatIsRefusedOrMisread) {
  for (const Row& row : refused) {
    EXPECT_EQ(complaintOfText(row.job).substr(0, sizeof invalid - 1), invalid) << row.why << "\n"
                                                                               << row.job;
  }
}

TEST(Schema, AcceptsTheDemo) {
  const std::string ids = std::regex_replace(readFile(sources + "/examples/demo-job.xml.in"),
                                             std::regex("@[UG]ID@"), "1000");
  EXPECT_EQ(complaintOfText(std::regex_replace(ids, std::regex("@[A-Z]+@"), "/srv/demo")), "");
}

// The complete job files in the document at `path`, indented by four spaces.
std::vector<std::string> jobsIn(const std::string& path) {
  const std::string text = readFile(path);
  const std::regex job("\n    (<([A-Za-z]+)>\n      <cmdData>[^]*?</\\2>)\n");
  std::vector<std::string> jobs;
  for (std::sregex_iterator match(text.begin(), text.end(), job), end; match != end; ++match) {
    jobs.push_back((*match)[1]);
  }
  return jobs;
}

TEST(Schema, AcceptsTheJobsOfTheDocuments) {
  const char* const documents[] = {"docs/job-file.md", "docs/writing-a-job-file.md"};
  for (const char* const document : documents) {
    const std::vector<std::string> jobs = jobsIn(sources + "/" + document);
    EXPECT_EQ(jobs.size(), 1u) << document;
    for (const std::string& job : jobs) {
      EXPECT_EQ(complaintOfText(job), "") << document << "\n" << job;
    }
  }
}

// Reasons why the schema accepts a faulty sample.
struct Unseen {
  const char* why;
  std::vector<std::string> codes;
};

const Unseen unseen[] = {
    {"a schema sees nothing before the root", {"RJ003"}},
    {"to a schema comments and CDATA sections are not there", {"RJ012", "RJ013", "RJ054"}},
    {"to a schema a typed TAB and a reference are the same", {"RJ024", "RJ025", "RJ026"}},
    {"it does what it says, and runs as root", {"RJ035"}},
    {"the request may name a user", {"RJ037"}},
    {"the tasks of a job do not need a time limit", {"RJ038"}},
    {"names are not compared", {"RJ055"}},
    {"bytes are not counted", {"RJ057", "RJ066"}},
    {"what placeholders come to is not worked out",
     {"RJ056", "RJ061", "RJ063", "RJ064", "RJ067", "RJ068"}},
    {"the command is not split into words", {"RJ070", "RJ071", "RJ072", "RJ073", "RJ081"}},
    {"it is about the request, not the file", {"RJ075", "RJ076", "RJ077", "RJ079"}},
    {"it is about the machine",
     {"RJ090", "RJ091", "RJ092", "RJ093", "RJ094", "RJ095", "RJ096", "RJ097", "RJ098", "RJ099"}},
};

bool isUnseen(const std::string& code) {
  return std::any_of(std::begin(unseen), std::end(unseen), [&](const Unseen& row) {
    return std::find(row.codes.begin(), row.codes.end(), code) != row.codes.end();
  });
}

// The sample with real values in place of its variables.
std::string sampleText(const std::string& path) {
  const std::string text = std::regex_replace(readFile(path), std::regex("@FOLDER@"), "/srv");
  return std::regex_replace(text, std::regex("@[0-9]+@"), "x");
}

TEST(Schema, FindsTheFaultsOfSamplesThatItCanSee) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(sources + "/tests/tool/samples")) {
    const std::string code = entry.path().filename();
    EXPECT_EQ(complaintOfText(sampleText(entry.path() / "fixed.xml")), "") << code;
    if (!std::filesystem::exists(entry.path() / "bad.xml"))
      continue;  // the finding is about a missing file
    const std::string complaint = complaintOfText(sampleText(entry.path() / "bad.xml"));
    EXPECT_EQ(complaint.empty(), isUnseen(code)) << code << "\n" << complaint;
    ++count;
  }
  EXPECT_GT(count, 60);
}

}  // namespace
}  // namespace runlet_test
