// Text that is special to a shell, to Slurm or to a terminal reaches the task unchanged.

#include <filesystem>

#include "farm.h"
#include "visible.h"

namespace runlet_test {
namespace {

std::string cdata(const std::string& text) {
  return "<![CDATA[" + text + "]]>";
}

// In double quotes: anything but a double quote may occur.
const char quoted[] =
    "it's $(touch pwned) `touch pwned` $HOME; touch pwned & true | cat > x < y * ? [a] {b} ~ # ! "
    "\\ "
    "\\\\ \\n %d %% %s %a %j \xc3\xa9\xe2\x82\xac \xff\xfe \x1b[31m \x7f\nnext line\n  EOF\nEND\n";
// A single word, without spaces.
const char bare[] = "a\"b'c$(id);&&||`id`\\%s\n*\xff\xc3\xa9";

class SlurmText : public FarmTest {
 protected:
  // The arguments and folder of the only task.
  Lines argumentsOfTask() const {
    Lines arguments;
    for (const std::string& line : linesOf(log("report"))) {
      if (line.starts_with("argument ")) arguments.push_back(line.substr(9));
    }
    return arguments;
  }

  void expectFolderOfTask(const std::string& folder) const {
    EXPECT_NE(log("report").find("\nfolder " + folder + "\n"), std::string::npos)
        << visible(folder) << log("report");
  }

  // A job in the folder of the test, with `elements` in its cmdData.
  std::string jobText(const std::string& elements, const std::string& arguments,
                      const std::string& task, const std::string& value) const {
    return "<Job><cmdData><Arguments>" + cdata("{" + arguments + "}") + "</Arguments>" + elements +
           "<TaskTimeout>10</TaskTimeout><uid>65534</uid><gid>65534</gid><umask>18</"
           "umask><TaskList>"
           "<Task><Params>" +
           cdata("{" + task + "}") +
           "</Params></Task></TaskList><JobParams><Param><Name>{a}</Name>"
           "<Value>" +
           cdata("{" + value + "}") + "</Value></Param></JobParams></cmdData></Job>\n";
  }

  // A job whose only task is the probe.
  std::string plainJob(const std::string& elements) const {
    return jobText(elements, probe_ + " " + folder_.file("report"), "task", "value");
  }

  // Submits the job of that name, ignoring warnings, and waits for its end.
  void run(const std::string& name, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {tool_, "submit", folder_.file(name)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProcessResult result = runProcess(program(arguments));
    ASSERT_EQ(describeStatus(result.waitStatus), "exit 0") << result.error;
    awaitEnd(firstLine(result.output));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("pwned")));
  }
};

TEST_F(SlurmText, InFieldsAndParametersReachesTheProgram) {
  const std::string value = std::string(quoted) + "\tafter a tab";
  folder_.write("job.xml", jobText("", probe_ + " report \"%tp1\" %tp2 \"%jp1\" x\\%%\"",
                                   quoted + std::string("\t") + bare, value));
  run("job.xml");
  EXPECT_EQ(argumentsOfTask(), (Lines{visible(probe_), "report", visible(quoted), visible(bare),
                                      visible(value), visible("x\\%\"")}));
  expectFolderOfTask(folder());
}

// Names for files and folders.
const char* const names[] = {
    "it's \"quoted\"",
    "$(touch pwned) `touch pwned`",
    "a; touch pwned & b | c > d < e",
    "100% %a %A %j %u %%",
    "two\nlines",
    "a\ttab",
    "\xc3\xa9\xe2\x82\xac",
    "\xff\xfe",
    "-rf",
    " ",
    "~*?[a]{b}#!",
};

TEST_F(SlurmText, InTheNameOfTheRunFolderIsEnteredAndHasTheLog) {
  for (const std::string name : names) {
    SCOPED_TRACE(visible(name));
    const std::string work = folder_.makeFolder("in " + name, 0777);
    folder_.write("job.xml", plainJob("<WorkingFolder>" + cdata(work) + "</WorkingFolder>"));
    run("job.xml");
    expectFolderOfTask(work);
    EXPECT_EQ(readFile(work + "/job-1.log"), calling(probe_ + " " + folder_.file("report"), work));
  }
}

TEST_F(SlurmText, InTheNameOfTheLogFolderIsWhereTheLogIs) {
  for (const std::string name : names) {
    SCOPED_TRACE(visible(name));
    const std::string logs = folder_.file("logs " + name);
    folder_.write("job.xml", plainJob("<LogFolder>" + cdata(logs) + "</LogFolder>"));
    run("job.xml");
    EXPECT_EQ(readFile(logs + "/job-1.log"),
              calling(probe_ + " " + folder_.file("report"), folder()));
  }
}

TEST_F(SlurmText, InTheNameOfTheJobFileIsInThatOfTheLog) {
  for (const std::string name : names) {
    SCOPED_TRACE(visible(name));
    folder_.write("x" + name + ".xml", plainJob(""));
    run("x" + name + ".xml");
    std::string log = "x" + name;
    for (char& c : log) c = c == '\n' || c == '\t' ? '_' : c;
    EXPECT_EQ(readFile(folder_.file(log + "-1.log")),
              calling(probe_ + " " + folder_.file("report"), folder()));
    std::filesystem::remove(folder_.file("report"));
  }
}

TEST_F(SlurmText, InTheFolderOfTheJobFileIsReadThere) {
  for (const std::string name : names) {
    SCOPED_TRACE(visible(name));
    const std::string folder = folder_.makeFolder("by " + name, 0777);
    folder_.write("by " + name + "/job.xml", plainJob(""));
    run("by " + name + "/job.xml");
    expectFolderOfTask(folder);
    EXPECT_EQ(readFile(folder + "/job-1.log"),
              calling(probe_ + " " + folder_.file("report"), folder));
  }
}

// A path that a shell would interpret is refused, since a shell makes the program executable.
TEST_F(SlurmText, InTheFolderOfTheApplicationIsTheProgramsOrRefused) {
  const std::string name = "100%%_%a%j-@+=:,.";
  const std::string program = folder_.makeFolder(name) + "/probe";
  std::filesystem::copy_file(probe_, program);
  folder_.write("job.xml", jobText("", "probe " + folder_.file("report"), "task", "value"));
  run("job.xml", {"-a", folder_.file(name) + "/any"});
  ASSERT_FALSE(argumentsOfTask().empty()) << log("job-1.log");
  EXPECT_EQ(argumentsOfTask()[0], program);

  for (const std::string other : {"$(touch${IFS}pwned)", "`touch${IFS}pwned`", "a;touch\tpwned"}) {
    const ProcessResult result = submit({"-a", folder_.file(other) + "/any"});
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.error.find(": error RJ076: "), std::string::npos) << result.error;
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
    EXPECT_FALSE(std::filesystem::exists(folder_.file("pwned")));
  }
}

TEST_F(SlurmText, WithABackslashInTheRunFolderNeedsAnotherForTheLogs) {
  const std::string work = folder_.makeFolder("back\\slash", 0777);
  folder_.write("job.xml", plainJob("<WorkingFolder>" + work + "</WorkingFolder>"));
  const ProcessResult result = submit();
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(
      result.error,
      "runlet-job: submit: sbatch does not support a backslash in the log folder: " + work + "\n");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");

  folder_.write("job.xml", plainJob("<WorkingFolder>" + work + "</WorkingFolder><LogFolder>" +
                                    folder_.file("logs") + "</LogFolder>"));
  run("job.xml");
  expectFolderOfTask(work);
  EXPECT_NE(log("logs/job-1.log"), "");
}

}  // namespace
}  // namespace runlet_test
