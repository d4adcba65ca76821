// Words of a command in a template: which get quotes, and which cannot be written.

#include <gtest/gtest.h>

#include "tool/make/quoting.h"

namespace runlet_tool {
namespace {

using Strings = std::vector<std::string>;

runlet::AdapterContext jobOf(const Strings& words, const Strings& tasks, const Strings& values) {
  runlet::AdapterContext job;
  for (const std::string& word : words) job.arguments += (job.arguments.empty() ? "" : " ") + word;
  job.taskList.assign(tasks.begin(), tasks.end());
  job.paramValues.assign(values.begin(), values.end());
  job.paramNames.assign(values.begin(), values.end());
  return job;
}

struct Row {
  Strings words;
  Strings tasks;
  Strings values;
  std::string result;  // the template, or the complaint
};

TEST(WordQuoting, PutsQuotesWhereTheyAreNeeded) {
  const std::vector<Row> rows = {
      {{"run", "a"}, {"x"}, {}, "run a"},
      {{"run", "a b"}, {"x"}, {}, "run \"a b\""},
      {{"run", "", "b"}, {"x"}, {}, "run \"\" b"},
      {{"run", " "}, {"x"}, {}, "run \" \""},
      {{"my tool", "b"}, {"x"}, {}, "\"my tool\" b"},
      // no space, no quotes
      {{"run", "a\tb\nc", "'x'", "$HOME", "a\\"}, {"x"}, {}, "run a\tb\nc 'x' $HOME a\\"},
      // a double quote inside a word is ordinary
      {{"run", "5\"", "a=\"b\""}, {"x"}, {}, "run 5\" a=\"b\""},
      {{"run", "%tp1"}, {"x", "y"}, {}, "run %tp1"},
      {{"run", "%tp1"}, {"x", "y z"}, {}, "run \"%tp1\""},
      {{"run", "%tp2", "%tp3"}, {"a\t\tc"}, {}, "run \"%tp2\" %tp3"},
      {{"run", "%4tp2"}, {"a\t\tc"}, {}, "run %4tp2"},
      {{"run", "%jp1", "%jp2", "%jp3"}, {"x"}, {"a b", "", "c"}, "run \"%jp1\" \"%jp2\" %jp3"},
      {{"run", "-s=%jp1", "%tn"}, {"x"}, {""}, "run -s=%jp1 %tn"},
      {{"run", "%", "%5"}, {"x"}, {}, "run \"%\" \"%5\""},
      {{"run", "50%", "%%"}, {"x"}, {}, "run 50% %%"},
      // a width continues with the digits of an earlier word: words are not expanded separately
      {{"run", "%tp12", "%3tp1"}, {"x"}, {}, "run %tp12 %3tp1"},
      // digits beyond 32 bits make the width negative, which puts spaces after the number
      {{"run", "%4294967290tn"}, {"x"}, {}, "run \"%4294967290tn\""},
      // no task of these can be started: they are left for check to find
      {{"run", "%tx", "a b"}, {"x"}, {}, "run %tx a b"},
  };
  for (const Row& row : rows) {
    const runlet::AdapterContext job = jobOf(row.words, row.tasks, row.values);
    std::string result;
    Complaint complaint;
    EXPECT_TRUE(CommandWords(row.words, job).quote(&result, &complaint)) << complaint.text;
    EXPECT_EQ(result, row.result);
  }
}

TEST(WordQuoting, RefusesWhatCannotBeWritten) {
  const std::vector<Row> rows = {
      {{"run", "\"a"},
       {"x"},
       {},
       "COMMAND '\"a': it begins with a double quote ('\"a' in task 1), which would start "
       "a quoted word"},
      {{"run", "\""},
       {"x"},
       {},
       "COMMAND '\"': it begins with a double quote ('\"' in task 1), which would start "
       "a quoted word"},
      {{"run", "a \"b"},
       {"x"},
       {},
       "COMMAND 'a \"b': it needs double quotes ('a \"b' in task 1) but contains one itself "
       "('a \"b' in task 1), which would end the word"},
      {{"run", "%tp1"},
       {"x", "\"y"},
       {},
       "COMMAND %tp1: it begins with a double quote ('\"y' in task 2), which would start "
       "a quoted word"},
      {{"run", "%tp1"},
       {"x\"", "x", "y z"},
       {},
       "COMMAND %tp1: it needs double quotes ('y z' in task 3) but contains one itself "
       "('x\"' in task 1), which would end the word"},
      {{"run", "%tp2\"%tp1"},
       {"b\t\tc"},
       {},
       "COMMAND '%tp2\"%tp1': it begins with a double quote ('\"b' in task 1), which would "
       "start a quoted word"},
      {{"run", "%jp1"},
       {"x"},
       {"a\" b"},
       "COMMAND %jp1: it needs double quotes ('a\" b' in task 1) but contains one itself "
       "('a\" b' in task 1), which would end the word"},
  };
  for (const Row& row : rows) {
    const runlet::AdapterContext job = jobOf(row.words, row.tasks, row.values);
    std::string result;
    Complaint complaint;
    EXPECT_FALSE(CommandWords(row.words, job).quote(&result, &complaint)) << result;
    EXPECT_EQ(complaint.text, row.result);
  }
}

TEST(WordQuoting, ExpandsWordsInTheirCommand) {
  const Strings words = {"%jp1", "", "-f=%4tn.", "%2tn", "%%%", "%tp2", "z"};
  const runlet::AdapterContext job = jobOf(words, {"a", "b\t \tc"}, {"p q"});
  Strings expanded;
  ASSERT_TRUE(CommandWords(words, job).expand(1, &expanded));
  EXPECT_EQ(expanded, (Strings{"p q", "", "-f=0002.", std::string(31, '0'), "%", " ", "z"}));
  EXPECT_FALSE(CommandWords(words, jobOf({"%t"}, {"a"}, {})).expand(0, &expanded));
}

}  // namespace
}  // namespace runlet_tool
