// runlet-job check and explain: their output and exit status.

#include <gtest/gtest.h>

#include "temp_folder.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

constexpr char clean[] =
    "<J>\n<cmdData>\n<Arguments>{bake %tp1}</Arguments>\n<WorkingFolder>/srv</WorkingFolder>\n"
    "<TaskTimeout>9</TaskTimeout><uid>7</uid><gid>7</gid>\n<TaskList>\n"
    "<Task><Params>{a}</Params></Task>\n<Task><Params>{b}</Params></Task>\n"
    "<Task><Params>{c}</Params></Task>\n</TaskList>\n<JobParams/>\n</cmdData>\n</J>\n";

class Check : public testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& from = "",
                    const std::string& to = "") const {
    std::string text = clean;
    if (!from.empty()) text.replace(text.find(from), from.size(), to);
    return folder_.write(name, text);
  }

  TempFolder folder_;
};

TEST_F(Check, SaysInOneLineThatNothingIsFound) {
  const std::string job = write("job.xml");
  expectTool(runTool({"check", job}), job + ": 3 tasks, no findings\n", "", "exit 0");
  expectTool(runTool({"check", "--strict", job}), job + ": 3 tasks, no findings\n", "", "exit 0");
}

TEST_F(Check, ReportsPlaceTextReasonAndWhatToWrite) {
  const std::string job = write("job.xml", "bake %tp1", "bake %tx 100%");
  expectTool(
      runTool({"check", job}),
      job +
          ":3:18: error RJ060: %tx: %t must be followed by n or p, and %j by p; the expansion "
          "fails, and no task is started.\n"
          "    Write %tn, %tp or %jp with a number, or %% for a percent sign. [every task]\n" +
          job + ": 3 tasks, 1 error\n",
      "", "exit 1");
}

TEST_F(Check, NamesTheTasksThatAFindingIsAbout) {
  struct Row {
    std::string from, to;
    std::string tasks;
  };
  const Row rows[] = {
      {"{bake %tp1}", "{bake %tp2}", "[every task]"},
      {"{b}", "{b b\"}", "[task 2]"},
      {"{b}</Params></Task>\n<Task><Params>{c}", "{b b\"}</Params></Task>\n<Task><Params>{c c\"}",
       "[tasks 2-3]"},
  };
  for (const Row& row : rows) {
    const std::string job = write("job.xml", row.from, row.to);
    EXPECT_NE(runTool({"check", job}).output.find(" " + row.tasks + "\n"), std::string::npos)
        << row.tasks;
  }
}

TEST_F(Check, FailsForErrorsAndIfStrictForWarnings) {
  const std::string warning = write("warning.xml", "%tp1", "%tp1 100%");
  const std::string error = write("error.xml", "<gid>7</gid>", "");
  const std::string note = write("note.xml", "{bake %tp1}", "{bake  %tp1}");
  const std::string missing = folder_.file("missing.xml");
  struct Row {
    std::vector<std::string> arguments;
    std::string status;
  };
  const Row rows[] = {
      {{warning}, "exit 0"},          {{"--strict", warning}, "exit 1"},
      {{"--strict", note}, "exit 0"}, {{error}, "exit 1"},
      {{missing}, "exit 2"},          {{missing, error}, "exit 2"},
      {{note, warning}, "exit 0"},    {{warning, error, note}, "exit 1"},
      {{"--json", error}, "exit 1"},
  };
  for (const Row& row : rows) {
    std::vector<std::string> arguments = {"check"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    EXPECT_EQ(describeStatus(runTool(arguments).waitStatus), row.status)
        << testing::PrintToString(row.arguments);
  }
}

TEST_F(Check, ReportsEveryFile) {
  const std::string first = write("first.xml", "bake", "bake 5%");
  const std::string second = write("second.xml");
  const std::string missing = folder_.file("missing.xml");
  expectTool(
      runTool({"check", first, missing, second}),
      first +
          ":3:19: warning RJ065: %: This % does not begin a placeholder and is dropped, along with "
          "the digits after it.\n    Write %% for a percent sign. [every task]\n" +
          first + ": 3 tasks, 1 warning\n" + missing +
          ": error RJ001: The adapter refuses the request with: Runlet adapter: Could not load "
          "parameter file " +
          missing +
          ". Error='Failed to open file'.Exiting.\n"
          "    Give the path of a job file that the adapter can read.\n" +
          missing + ": 0 tasks, 1 error\n" + second + ": 3 tasks, no findings\n",
      "", "exit 2");
}

TEST_F(Check, ShowsControlCharactersInOneLine) {
  const std::string job = write("job.xml", "{a}", "{a&#10;b\x7f}");
  const std::string output = runTool({"check", job}).output;
  EXPECT_NE(output.find("RJ073: a\\nb\\x7f: "), std::string::npos) << output;
}

TEST_F(Check, WritesJson) {
  const std::string bad = write("bad.xml", "{b}", "{b b\"\xff}");
  const std::string good = write("good.xml");
  expectTool(
      runTool({"check", "--json", bad, good}),
      "{\n"
      " \"format\": \"runlet-job check\",\n"
      " \"version\": 1,\n"
      " \"jobs\": [\n"
      "  {\n"
      "   \"job\": \"" +
          bad +
          "\",\n"
          "   \"tasks\": 3,\n"
          "   \"errors\": 0,\n"
          "   \"warnings\": 1,\n"
          "   \"notes\": 0,\n"
          "   \"leftOut\": {},\n"
          "   \"findings\": [\n"
          "    {\n"
          "     \"code\": \"RJ071\",\n"
          "     \"severity\": \"warning\",\n"
          "     \"line\": 3,\n"
          "     \"column\": 18,\n"
          "     \"text\": \"b\\\"\xef\xbf\xbd\",\n"
          "     \"tasks\": \"2\",\n"
          "     \"why\": \"A double quote inside a word is an ordinary character, and reaches the "
          "program.\",\n"
          "     \"instead\": \"Put the quotes around the whole word.\"\n"
          "    }\n"
          "   ]\n"
          "  },\n"
          "  {\n"
          "   \"job\": \"" +
          good +
          "\",\n"
          "   \"tasks\": 3,\n"
          "   \"errors\": 0,\n"
          "   \"warnings\": 0,\n"
          "   \"notes\": 0,\n"
          "   \"leftOut\": {},\n"
          "   \"findings\": []\n"
          "  }\n"
          " ]\n"
          "}\n",
      "", "exit 0");
}

TEST(Explain, PrintsTheLongForm) {
  expectTool(runTool({"explain", "RJ012"}),
             "RJ012 (warning): the text of an element is cut off\n\n"
             "The text of an element is what the element begins with, up to the first\n"
             "comment, CDATA section or element in it. What follows is ignored. An element\n"
             "that begins with a comment or another element has no text at all. The wrong\n"
             "folder below is `/srv`.\n\n"
             "Move the comment out of the element, and write the text in one piece.\n\n"
             "Wrong:\n"
             "  <WorkingFolder>/srv<!-- local -->/shots</WorkingFolder>\n"
             "Right:\n"
             "  <WorkingFolder>/srv/shots</WorkingFolder><!-- local -->\n",
             "", "exit 0");
  EXPECT_EQ(runTool({"explain", "RJ051", "RJ007"}).output,
            runTool({"explain", "RJ051"}).output + "\n" + runTool({"explain", "RJ007"}).output);
}

TEST(Explain, RefusesAnUnknownCode) {
  const ProcessResult result = runTool({"explain", "RJ999", "RJ007"});
  EXPECT_EQ(result.error, "runlet-job: explain: unknown code: RJ999\n");
  EXPECT_EQ(result.output, runTool({"explain", "RJ007"}).output);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 2");
}

TEST(Explain, ListsAllFindings) {
  const ProcessResult result = runTool({"explain"});
  EXPECT_TRUE(result.output.starts_with("RJ001  error    the job file cannot be read\n"));
  EXPECT_NE(result.output.find("\nRJ056  note     a parameter is never used\n"), std::string::npos);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

}  // namespace
}  // namespace runlet_test
