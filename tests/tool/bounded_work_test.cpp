// The cost of verbs that read a job for files designed to be expensive, and of make for a job of
// that size: time and memory are proportional to the file, like loading it, and everything skipped
// is reported.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "adapter_test.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Json = nlohmann::json;
using std::chrono::milliseconds;

// If the product is not optimised, as with the sanitizers, everything takes far longer.
#ifdef RUNLET_IS_OPTIMISED
constexpr int slowness = 1;
constexpr std::size_t size = 1'000'000;  // approximate bytes of each file
#else
constexpr int slowness = 20;
constexpr std::size_t size = 150'000;
#endif

constexpr std::size_t mostMemory = 300'000'000;

#ifdef RUNLET_IS_SANITIZED
constexpr bool isMemoryMeasurable = false;
#else
constexpr bool isMemoryMeasurable = true;
#endif

std::string times(std::size_t count, const std::string& piece) {
  std::string text;
  text.reserve(count * piece.size());
  for (std::size_t i = 0; i < count; ++i) text += piece;
  return text;
}

// As many pieces as fit into `length` bytes.
std::string filled(const std::string& piece, std::size_t length = size) {
  return times(length / piece.size(), piece);
}

const std::string task = "<Task><Params>{1}</Params></Task>\n";
const std::string emptyValue = "<Param><Name>{a}</Name><Value>{}</Value></Param>";

// Tasks that each run a different, missing program.
std::string programs(std::size_t length) {
  std::string text;
  for (int i = 0; text.size() < length; ++i) {
    text += "<Task><Params>{none" + std::to_string(i) + "}</Params></Task>";
  }
  return text;
}

struct Parts {
  std::string command = "/bin/true";
  std::string elements = "";
  std::string tasks = task;
  std::string params = "";
};

std::string jobOf(const Parts& parts) {
  return "<Job><cmdData><Arguments>{" + parts.command +
         "}</Arguments>\n<uid>1000</uid><gid>1000</gid>" + parts.elements + "<TaskList>" +
         parts.tasks + "</TaskList><JobParams>" + parts.params + "</JobParams></cmdData></Job>\n";
}

struct Row {
  const char* name;
  Parts parts;
};

std::vector<Row> rows() {
  const std::string half = filled(task, size / 2);
  return {
      {"nothing", {}},
      {"a usual job", {.command = "/bin/echo %tp1 %4tn", .tasks = filled(task)}},
      {"ampersands", {.command = "x " + filled("&")}},
      {"ampersands in parameters",
       {.params = filled("<Param><Name>{&}</Name><Value>{&}</Value></Param>")}},
      {"references", {.command = "x " + filled("&#65;")}},
      {"percent signs", {.command = "x " + filled("%x")}},
      {"both", {.command = "x " + filled("%x&&&")}},
      {"dropped percent signs of no length",
       {.command = "x %jp1" + filled("&%jp1"), .params = emptyValue}},
      {"widths", {.command = "x " + filled("%0jp1"), .params = emptyValue}},
      {"numbers beyond 32 bits", {.command = "x " + filled("%jp4294967297"), .params = emptyValue}},
      {"long digits",
       {.command = "x " + filled("%jp" + std::string(40, '0')), .params = emptyValue}},
      {"digits", {.command = "x %" + filled("0") + "tn"}},
      {"empty elements", {.elements = filled("<a/>")}},
      {"texts", {.elements = filled("x<a/>")}},
      {"comments", {.elements = filled("<!---->")}},
      {"comments before a text",
       {.tasks = "<Task><Params>" + filled("<!---->") + "{1}</Params></Task>"}},
      {"comments in tasks", {.tasks = task + filled("<!--Task-->")}},
      {"nested elements", {.elements = times(100, times(1000, "<aa>") + times(1000, "</aa>"))}},
      {"attributes",
       {.elements = times(
            9, "<a" +
                   [] {
                     std::string text;
                     for (int i = 10000; i < 19000; ++i) text += " b" + std::to_string(i) + "=''";
                     return text;
                   }() +
                   "/>")}},
      {"tasks of a long template",
       {.command = "x " + std::string(3900, 'x'), .tasks = filled(task)}},
      {"tasks of many words", {.command = "x " + filled("$a ", 3900), .tasks = filled(task)}},
      {"tasks of a long template",
       {.command = "x " + filled("%jp1", size / 2), .tasks = half, .params = emptyValue}},
      {"tasks of a long folder",
       {.elements = "<WorkingFolder>/" + filled("x", size / 2) + "</WorkingFolder>",
        .tasks = half}},
      {"fields of a long entry",
       {.command = "x " + filled("%tp1990"),
        .tasks = "<Task><Params><![CDATA[{" + times(1997, "\t") + "}]]></Params></Task>"}},
      {"fields of long entries",
       {.command = "x " + filled("%tp1990", size / 2),
        .tasks =
            times(200, "<Task><Params><![CDATA[{" + times(1997, "\t") + "}]]></Params></Task>")}},
      {"fields that there are not", {.command = "x %tp2", .tasks = filled(task)}},
      {"tasks that are none", {.tasks = filled("<Task/>")}},
      {"tasks without braces", {.tasks = filled("<Task><Params>1</Params></Task>")}},
      {"text outside of braces",
       {.params = filled("<Param><Name>x{a}</Name><Value>{a}y</Value></Param>")}},
      {"hidden texts", {.tasks = filled("<Task><Params><b/>{1}</Params></Task>")}},
      {"cut off texts", {.tasks = filled("<Task><Params>{1}<b/></Params></Task>")}},
      {"short words", {.command = "x " + filled("a ", 3900), .tasks = filled(task)}},
      {"many programs", {.command = "%tp1", .tasks = programs(size)}},
      {"parameters", {.params = filled(emptyValue)}},
      {"parameters without a name", {.params = "<Param/>" + filled("<b/>")}},
      {"control characters", {.tasks = filled("<Task><Params>{&#27;}</Params></Task>")}},
      {"white space",
       {.command = "x" + filled("  y"),
        .tasks = filled("<Task><Params>{1  2}</Params></Task>", size / 2)}},
  };
}

class BoundedWork : public AdapterTest {
 protected:
  ProcessResult runOn(const std::vector<std::string>& words) const {
    ProcessOptions options = tool(words);
    options.arguments.push_back(jobFile_);
    options.patience = std::chrono::seconds(300);
    return runProcess(options);
  }

  // The cost of an adapter that only loads the file.
  std::chrono::microseconds loadTime() const {
    ProcessOptions options = adapter({"-o", "PingTask", "-j", jobFile_, "-e", "0"});
    options.patience = std::chrono::seconds(300);
    return runProcess(options).cpuTime;
  }

  static milliseconds inMilliseconds(std::chrono::microseconds time) {
    return std::chrono::duration_cast<milliseconds>(time);
  }

  // Asserts that the process took little more time than `work`, which is the time of a load times
  // the allowed number of loads.
  static void expectLittleMore(const ProcessResult& result, std::chrono::microseconds work,
                               const std::string& name) {
    EXPECT_TRUE(WIFEXITED(result.waitStatus)) << describeStatus(result.waitStatus);
    const auto most = work * 3 / 2 + milliseconds(500) * slowness;
    EXPECT_LE(inMilliseconds(result.cpuTime).count(), inMilliseconds(most).count());
    EXPECT_LE(isMemoryMeasurable ? result.peakMemory : 0, mostMemory);
    if (std::getenv("RUNLET_SHOW_WORK") != nullptr) {
      std::printf("%6lld ms of %6lld, %4zu MB, %9zu bytes: %s\n",
                  static_cast<long long>(inMilliseconds(result.cpuTime).count()),
                  static_cast<long long>(inMilliseconds(work).count()),
                  result.peakMemory / 1'000'000, result.output.size(), name.c_str());
    }
  }

  void expectBounded(const std::vector<std::string>& words, std::chrono::microseconds load) const {
    expectLittleMore(runOn(words), load, testing::PrintToString(words));
  }

  std::string check(const std::vector<std::string>& options = {}) const {
    std::vector<std::string> words = {"check"};
    words.insert(words.end(), options.begin(), options.end());
    return runOn(words).output;
  }
};

TEST_F(BoundedWork, IsThatOfTheLibraryAndLittleMoreForAnyJob) {
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.name);
    // With an impossible log folder, so that nothing is run in the end.
    Parts parts = row.parts;
    parts.elements += "<LogFolder>" + jobFile_ + "/none</LogFolder>";
    folder_.write("job.xml", jobOf(parts));
    if (std::getenv("RUNLET_SHOW_WORK") != nullptr) std::printf("%s\n", row.name);
    const std::chrono::microseconds load = loadTime();
    expectBounded({"check", "--json", "--host"}, load);
    expectBounded({"expand", "--json"}, load);
    if (slowness > 1) continue;  // the rest would take ten minutes and run the same code
    expectBounded({"check"}, load);
    expectBounded({"expand"}, load);
    expectBounded({"run"}, load);
    expectBounded({"submit", "--dry-run"}, load);
    expectBounded({"run", "-n", "1"}, load);
  }
}

// make checks the job that it has written, and how it loads.
TEST_F(BoundedWork, OfMakeIsThatOfItsJob) {
  constexpr std::size_t longest = 80'000;  // fits into any command line
  const struct {
    const char* name;
    std::vector<std::string> options;
    std::vector<std::string> command;
    std::string tasks = "1\n";
  } rows[] = {
      {"nothing", {}, {"/bin/true"}},
      {"ampersands", {}, {"x " + filled("&", longest)}},
      {"an ampersand in each word", {}, std::vector<std::string>(longest / 4, "&")},
      {"a word of ampersands", {}, {"x", filled("&", longest)}},
      {"percent signs", {}, {"x " + filled("%x", longest)}},
      {"a word of percent signs", {}, {"x", filled("%x", longest)}},
      {"quotes", {}, {"x", filled("\"", longest)}},
      {"a long parameter", {"--param", "a=" + filled("&", longest)}, {"x", "%jp1"}},
      {"a parameter again and again",
       {"--param", "a=" + filled("&", 1000)},
       {"x " + filled("%jp1", longest)}},
      {"many tasks", {}, {"x", "%tp1"}, filled("1\n", longest)},
      {"tasks of ampersands", {}, {"x", "%tp1"}, filled("&\n", longest)},
      {"a task of ampersands", {}, {"x", "%tp1"}, filled("&") + "\n"},
      {"a task of tabs", {}, {"x", "%tp1"}, filled("\t") + "\n"},
      {"tasks of a long template", {}, {"x " + filled("%tp1", 3900)}, filled("1\n", longest)},
      {"frames", {"--frames", "1-50000"}, {"x", "%tp1"}, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    folder_.write("job.xml", "");
    std::vector<std::string> words = {"make", "-o", jobFile_, "--timeout", "5"};
    if (!row.tasks.empty()) {
      words.insert(words.end(), {"--tasks", folder_.write("tasks", row.tasks)});
    }
    words.insert(words.end(), row.options.begin(), row.options.end());
    words.emplace_back("--");
    words.insert(words.end(), row.command.begin(), row.command.end());
    ProcessOptions options = tool(words);
    options.patience = std::chrono::seconds(300);
    const ProcessResult result = runProcess(options);
    expectLittleMore(result, 2 * loadTime(), row.name);
  }
}

// Findings of one code, for the whole job or for its tasks.
TEST_F(BoundedWork, KeepsTheFirstFindingsOfACodeAndCountsTheOthers) {
  const std::string limit = "<TaskTimeout>5</TaskTimeout>";
  const struct {
    Parts parts;
    const char* code;
    std::size_t count;
  } rows[] = {
      {{.elements = limit + times(20, "<a/>")}, "RJ010", 20},
      {{.elements = limit + times(21, "<a/>")}, "RJ010", 21},
      {{.command = "x " + times(50, "%x"), .elements = limit, .tasks = times(3, task)},
       "RJ065",
       50},
  };
  for (const auto& row : rows) {
    folder_.write("job.xml", jobOf(row.parts));
    const std::size_t kept = std::min<std::size_t>(row.count, 20);
    const Json job = Json::parse(check({"--json"})).at("jobs").at(0);
    Json leftOut = Json::object();
    if (row.count > kept) leftOut[row.code] = row.count - kept;
    EXPECT_EQ(job.at("leftOut"), leftOut);
    EXPECT_EQ(job.at("warnings"), row.count);
    EXPECT_EQ(job.at("findings").size(), kept);
    const Json all = Json::parse(check({"--json", "--all"})).at("jobs").at(0);
    EXPECT_EQ(all.at("leftOut"), Json::object());
    EXPECT_EQ(all.at("findings").size(), row.count);
    EXPECT_TRUE(std::equal(job.at("findings").begin(), job.at("findings").end(),
                           all.at("findings").begin()));
  }
  const std::string text = check();
  const std::string end = "    Write %% for a percent sign. [every task]\n" + jobFile_ +
                          ": warning RJ065: and 30 more, which runlet-job check --all shows\n" +
                          jobFile_ + ": 3 tasks, 50 warnings\n";
  EXPECT_TRUE(text.ends_with(end)) << text;
}

// The error in the last task is not reported.
TEST_F(BoundedWork, RJ069TasksThatWouldTakeTooLong) {
  constexpr std::size_t length = std::max<std::size_t>(size, 300'000);  // less is no work
  const Parts parts = {.command = "x " + std::string(3900, 'x') + "%tp1",
                       .elements = "<TaskTimeout>5</TaskTimeout>",
                       .tasks = filled(task, length) + "<Task><Params>{" + std::string(1000, 'y') +
                                "}</Params></Task>",
                       .params = emptyValue};
  folder_.write("job.xml", jobOf(parts));
  const std::string count = std::to_string(length / task.size() + 1);
  const Json job = Json::parse(check({"--json"})).at("jobs").at(0);
  ASSERT_EQ(job.at("findings").size(), 1U) << job.at("findings");
  const Json finding = job.at("findings").at(0);
  EXPECT_EQ(finding.at("code"), "RJ069");
  EXPECT_EQ(finding.at("severity"), "warning");
  EXPECT_EQ(finding.at("line"), 0);
  EXPECT_EQ(finding.at("tasks"), Json());
  const std::string why = finding.at("why");
  const std::string begin = "Of the " + count + " tasks only the first ";
  ASSERT_TRUE(why.starts_with(begin)) << why;
  EXPECT_GT(std::stoi(why.substr(begin.size())), 1000);
  EXPECT_TRUE(why.ends_with(" were checked; the others would take too long.")) << why;

  const Json all = Json::parse(check({"--all", "--json"})).at("jobs").at(0);
  ASSERT_EQ(all.at("findings").size(), 1U) << all.at("findings");
  EXPECT_EQ(all.at("findings").at(0).at("code"), "RJ066");
  EXPECT_EQ(all.at("findings").at(0).at("tasks"), count);

  // Nor are such tasks run: an unchecked task may not even be a command.
  for (const char* verb : {"run", "submit"}) {
    const ProcessResult result = runOn({verb});
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(result.error.starts_with(jobFile_ + ": warning RJ069: Of the ")) << result.error;
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
    const ProcessResult last = runOn({verb, "-s", count, "-n", "1"});
    EXPECT_NE(last.error.find("error RJ066: "), std::string::npos) << last.error;
  }
}

TEST_F(BoundedWork, OfProgramsOfTheMachineIsBoundedToo) {
  folder_.write("job.xml", jobOf({.command = "%tp1", .tasks = programs(size)}));
  EXPECT_EQ(check().find("RJ069"), std::string::npos);
  const std::string text = check({"--host"});
  const std::size_t first = text.find("warning RJ069: Of the ");
  EXPECT_NE(first, std::string::npos) << text;
  EXPECT_EQ(text.find("RJ069", first + 20), std::string::npos);
}

// The skipped tasks can be shown separately.
TEST_F(BoundedWork, OfExpandSkipsTasksAndSaysSo) {
  const int count = 20000;
  folder_.write("job.xml",
                jobOf({.command = "x " + std::string(3900, 'x'), .tasks = times(count, task)}));
  const ProcessResult result = runOn({"expand"});
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 1");
  const std::size_t last = result.output.rfind("\ntask ");
  ASSERT_NE(last, std::string::npos);
  const int shown = std::stoi(result.output.substr(last + 6));
  EXPECT_GT(shown, 1000);
  EXPECT_EQ(result.error,
            "runlet-job: expand: skipped " + std::to_string(count - shown) + " tasks after task " +
                std::to_string(shown) +
                ", since all of them would take too long; show the rest with -s and -n\n");
  const ProcessResult inJson = runOn({"expand", "--json"});
  EXPECT_EQ(inJson.error, result.error);
  const Json json = Json::parse(inJson.output);
  EXPECT_EQ(json.at("tasks").size(), shown);
  EXPECT_EQ(json.at("leftOut"), count - shown);
  const ProcessResult next =
      runOn({"expand", "-s", std::to_string(shown + 1), "-n", std::to_string(count)});
  EXPECT_EQ(describeStatus(next.waitStatus), "exit 0");
  EXPECT_EQ(next.error, "");
  EXPECT_TRUE(next.output.starts_with("task " + std::to_string(shown + 1) + "\n"));
  EXPECT_NE(next.output.find("\ntask " + std::to_string(count) + "\n"), std::string::npos);
}

// However deep inside the template, and whatever is dropped before them.
TEST_F(BoundedWork, KeepsThePlacesInALongTemplate) {
  const std::string start = "<Job><cmdData><Arguments>";
  const std::string odd = "{x " + times(700, "%jp1&&&") + "&&z%x" + times(700, "%jp1") + "%y}";
  const std::string plain = "{x " + times(2000, "%jp1") + "%x" + times(700, "%jp1") + "%y}";
  for (const std::string& text : {odd, "<![CDATA[" + plain + "]]>"}) {
    folder_.write("job.xml", start + text +
                                 "</Arguments><TaskTimeout>5</TaskTimeout><uid>1</uid><gid>1</gid>"
                                 "<TaskList>" +
                                 task + "</TaskList><JobParams>" + emptyValue +
                                 "</JobParams></cmdData></Job>");
    std::vector<std::size_t> columns;
    const Json job = Json::parse(check({"--json"})).at("jobs").at(0);
    for (const Json& finding : job.at("findings")) {
      if (finding.at("code") == "RJ065") columns.push_back(finding.at("column"));
    }
    const std::vector<std::size_t> expected = {(start + text).find("%x") + 1,
                                               (start + text).find("%y") + 1};
    EXPECT_EQ(columns, expected);
  }
}

}  // namespace
}  // namespace runlet_test
