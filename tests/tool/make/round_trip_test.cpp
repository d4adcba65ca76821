// Random jobs through make and back through the adapter's own loader, fill-in and splitter: the
// result equals the intention byte for byte, and only what cannot be represented is refused.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <regex>

#include "adapter/context.h"
#include "exec/start.h"
#include "exec/words.h"
#include "job/parameter_file.h"
#include "model.h"
#include "random.h"
#include "tool/make/writer.h"
#include "tool/system/files.h"

namespace runlet_tool {
namespace {

using runlet_model::Random;
using Strings = std::vector<std::string>;

// The intended job, and the options for it.
struct Wish {
  MakeOptions options;
  Strings names;
  Strings values;
  Strings tasks;
  std::int32_t timeout = 0;
  std::int32_t umask = 0;
  std::uint32_t user = 0;
};

constexpr char byteOrderMark[] = "\xef\xbb\xbf";

// A text of pieces that are special to XML, braces, placeholders or the splitter.
std::string hostileText(Random* random) {
  static const Strings pieces = {"a",
                                 "b",
                                 "/",
                                 "Undefined",
                                 " ",
                                 "  ",
                                 "{",
                                 "}",
                                 "{}",
                                 "&",
                                 "<",
                                 ">",
                                 "]]>",
                                 "<!--",
                                 "<![CDATA[",
                                 "&amp;",
                                 "&#9;",
                                 "&#x20;",
                                 "'",
                                 "\\",
                                 "=",
                                 "0",
                                 "12",
                                 "%%",
                                 "\xc3\xa4",
                                 "\xe2\x82\xac",
                                 "\xf0\x9f\x8e\xac",
                                 "\x7f",
                                 "\xc2\x85",
                                 "\xee\x80\x80",
                                 byteOrderMark};
  static const Strings white = {"\t", "\n", "\r", "\r\n", " \t ", "\n "};
  static const Strings impossible = {
      "\x01",         "\x1f",         "\xff",         "\xc3",
      "\xed\xa0\x80", "\xef\xbf\xbe", "\xef\xbf\xbf", "\xf4\x90\x80\x80",
      "\xc0\x80"};
  std::string text;
  for (std::size_t count = random->below(7); count > 0; --count) text += random->pick(pieces);
  if (random->chance(10)) text += random->pick(white) + random->pick(pieces);
  if (random->chance(3)) text.insert(0, random->pick(white));
  if (random->chance(3)) text += random->pick(white);
  if (random->chance(5)) text.insert(text.size() / 2, "\"");
  if (random->chance(1)) text += random->pick(impossible);
  if (random->chance(3)) text.insert(0, std::string(1990 + random->below(9), 'x'));
  return text;
}

// The XML pieces are for values; here long numbers would be refused as numbers.
std::string templateText(Random* random) {
  static const Strings pieces = {"%tn",   "%3tn", "%tp1", "%tp2", "%5tp3", "%tp", "%jp1",
                                 "%2jp2", "%jp3", "%jp9", "%%",   "%",     "%7",  "-f",
                                 "=",     "a",    ".",    "%tn",  "%tp1",  "%jp1"};
  std::string text = random->chance(30) ? hostileText(random) : "";
  for (std::size_t count = random->below(4); count > 0; --count) text += random->pick(pieces);
  if (random->chance(1)) text += random->chance(50) ? "%t" : "%jx";
  return std::regex_replace(text, std::regex("[0-9]{8,}"), "1");
}

std::string taskLine(Random* random) {
  std::string line;
  for (std::size_t count = random->below(3); count > 0; --count) {
    line += random->chance(15) ? "" : hostileText(random);
    line += '\t';
  }
  line += random->chance(3) ? "" : "t" + hostileText(random);
  std::erase(line, '\n');
  while (line.ends_with('\r')) line.pop_back();
  return line;
}

void wishForParams(Random* random, Wish* wish) {
  for (std::size_t count = random->below(4); count > 0; --count) {
    std::string name = random->chance(98) ? "p" + std::to_string(count) : "p";
    if (random->chance(20)) name += hostileText(random);
    std::erase(name, '=');
    if (random->chance(1)) name.clear();
    wish->names.push_back(name);
    wish->values.push_back(hostileText(random));
    wish->options.params.push_back(name.append("=").append(wish->values.back()));
  }
}

void wishForNumbers(Random* random, Wish* wish) {
  char octal[8];
  wish->umask = static_cast<std::int32_t>(random->below(512));
  std::snprintf(octal, sizeof octal, "%o", static_cast<unsigned>(wish->umask));
  wish->options.umask = octal;
  wish->timeout = static_cast<std::int32_t>(1 + random->below(35791));
  wish->options.timeout = std::to_string(wish->timeout);
  wish->user = static_cast<std::uint32_t>(random->below(4294967295));
  wish->options.user = std::to_string(wish->user);
  wish->options.standardError = random->chance(50) ? "keep" : "join";
}

void wishForTexts(Random* random, Wish* wish) {
  if (random->chance(60)) wish->options.folder = "/" + hostileText(random);
  if (random->chance(5)) wish->options.folder = hostileText(random);
  if (random->chance(2)) wish->options.folder = random->chance(50) ? "../." : " ";
  if (random->chance(30)) wish->options.logs = "l" + hostileText(random);
  if (random->chance(30)) wish->options.outputs = hostileText(random) + "o";
}

void wishForCommand(Random* random, Wish* wish) {
  if (random->chance(90)) wish->options.command.emplace_back("/bin/echo");
  if (random->chance(15)) {
    wish->options.command = {"run " + templateText(random)};
    return;
  }
  for (std::size_t count = random->below(5) + 1; count > 0; --count) {
    wish->options.command.push_back(templateText(random));
  }
}

Wish randomWish(Random* random) {
  Wish wish;
  wishForCommand(random, &wish);
  wishForTexts(random, &wish);
  wishForNumbers(random, &wish);
  wishForParams(random, &wish);
  for (std::size_t count = random->below(3) + 1; count > 0; --count) {
    wish.tasks.push_back(taskLine(random));
  }
  return wish;
}

std::string taskText(const Strings& tasks) {
  // If the first field begins with one, another must precede it.
  std::string text = tasks.front().starts_with(byteOrderMark) ? byteOrderMark : "";
  for (const std::string& task : tasks) text.append(task).append("\n");
  return text;
}

// The length of that code point in UTF-8.
std::size_t lengthOf(std::uint32_t point) {
  return point < 0x80 ? 1 : point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
}

bool isXmlCharacter(std::uint32_t point) {
  if (point < 0x20) return point == 9 || point == 10 || point == 13;
  return point < 0xd800 || (point >= 0xe000 && point < 0xfffe) ||
         (point >= 0x10000 && point < 0x110000);
}

// Whether the text is valid UTF-8 of XML 1.0 characters.
bool isXmlText(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto first = static_cast<unsigned char>(text[at]);
    const std::size_t ones = first < 0x80   ? 1
                             : first < 0xc0 ? 0
                             : first < 0xe0 ? 2
                             : first < 0xf0 ? 3
                                            : 4;
    if (ones == 0 || at + ones > text.size()) return false;
    std::uint32_t point = ones == 1 ? first : first & (0x7fU >> ones);
    for (std::size_t i = 1; i < ones; ++i) {
      const auto byte = static_cast<unsigned char>(text[at + i]);
      if ((byte & 0xc0U) != 0x80U) return false;
      point = (point << 6U) | (byte & 0x3fU);
    }
    if (lengthOf(point) != ones || !isXmlCharacter(point)) return false;
    at += ones;
  }
  return true;
}

bool isAnyXmlText(const Strings& texts) {
  return std::all_of(texts.begin(), texts.end(), isXmlText);
}

runlet_model::Lists listsOf(const Wish& wish) {
  return {.taskList = wish.tasks, .paramNames = wish.names, .paramValues = wish.values};
}

constexpr char mark = '\x1f';  // cannot be in a word: XML does not allow it

// The words of a task, expanded together, separated by marks.
bool expandWords(const Wish& wish, std::int32_t task, Strings* words) {
  std::string pattern;
  for (const std::string& word : wish.options.command) pattern += word + mark;
  const runlet_model::Result result = runlet_model::fillIn(listsOf(wish), pattern, task);
  if (result.outcome != runlet_model::Outcome::done) return false;
  words->clear();
  for (std::size_t at = 0; at < result.text.size();) {
    const std::size_t end = result.text.find(mark, at);
    words->push_back(result.text.substr(at, end - at));
    at = end + 1;
  }
  return true;
}

bool mustBeQuoted(const std::string& word) {
  return word.empty() || word.find(' ') != std::string::npos;
}

// Whether the words of all tasks can be written: no word both needs quotes and rules them out.
bool canWriteWords(const Wish& wish) {
  const std::size_t count = wish.options.command.size();
  std::vector<bool> quoted(count);
  std::vector<bool> holdsQuote(count);
  std::size_t longest = 0;
  for (std::size_t task = 0; task < wish.tasks.size(); ++task) {
    Strings words;
    if (!expandWords(wish, static_cast<std::int32_t>(task), &words)) return false;
    if (words.front().empty()) return false;  // nothing could be started
    std::size_t length = count - 1;
    for (std::size_t i = 0; i < count; ++i) {
      if (words[i].starts_with('"')) return false;
      quoted[i] = quoted[i] || mustBeQuoted(words[i]);
      holdsQuote[i] = holdsQuote[i] || words[i].find('"') != std::string::npos;
      length += words[i].size();
    }
    longest = std::max(longest, length);
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (quoted[i] && holdsQuote[i]) return false;
    if (quoted[i]) longest += 2;
  }
  return longest < 4000;
}

bool canFillTemplate(const Wish& wish) {
  for (std::size_t task = 0; task < wish.tasks.size(); ++task) {
    const runlet_model::Result result = runlet_model::fillIn(
        listsOf(wish), wish.options.command.front(), static_cast<std::int32_t>(task));
    if (result.outcome != runlet_model::Outcome::done) return false;
    const Strings words = runlet_model::words(result.text);
    if (words.empty() || words.front().empty()) return false;
  }
  return true;
}

bool canCarryCommand(const Wish& wish) {
  if (!isAnyXmlText(wish.options.command)) return false;
  return wish.options.command.size() == 1 ? canFillTemplate(wish) : canWriteWords(wish);
}

bool canCarryTask(const std::string& task) {
  return !task.empty() && !task.ends_with('\t') && task.size() < 2000 && isXmlText(task) &&
         task.find('\r') == std::string::npos;
}

bool canCarryParams(const Wish& wish) {
  Strings names = wish.names;
  std::sort(names.begin(), names.end());
  const bool areUnique = std::adjacent_find(names.begin(), names.end()) == names.end();
  const auto isShort = [](const std::string& text) { return text.size() < 2000; };
  return areUnique && std::none_of(names.begin(), names.end(), std::mem_fn(&std::string::empty)) &&
         std::all_of(names.begin(), names.end(), isShort) && isAnyXmlText(names) &&
         std::all_of(wish.values.begin(), wish.values.end(), isShort) && isAnyXmlText(wish.values);
}

bool canCarryText(const std::optional<std::string>& text) {
  return !text || (isXmlText(*text) && text->find_first_not_of(" \t\r\n") != std::string::npos);
}

// A relative folder is found only once, unless it only leads upwards.
bool canCarryFolder(const Wish& wish) {
  const std::optional<std::string>& folder = wish.options.folder;
  if (!canCarryText(folder)) return false;
  return !folder || folder->starts_with('/') || wish.tasks.size() == 1 ||
         std::regex_match(*folder, std::regex("\\.{1,2}(/+\\.{1,2})*/*"));
}

bool canCarry(const Wish& wish) {
  return canCarryCommand(wish) && canCarryFolder(wish) && canCarryText(wish.options.logs) &&
         canCarryText(wish.options.outputs) && canCarryParams(wish) &&
         std::all_of(wish.tasks.begin(), wish.tasks.end(), canCarryTask);
}

Strings splitAsAdapter(std::string line) {
  Strings words;
  for (const char* word : runlet::splitWords(line.data())) {
    if (word != nullptr) words.emplace_back(word);
  }
  return words;
}

void expectFields(const runlet::AdapterContext& job, const Wish& wish) {
  EXPECT_EQ(job.workingFolder, wish.options.folder.value_or(""));
  EXPECT_EQ(job.logFolder, wish.options.logs.value_or(""));
  EXPECT_EQ(job.outputs, wish.options.outputs.value_or(""));
  EXPECT_EQ(job.taskNameIdx, 1);
  EXPECT_EQ(job.taskTimeout, wish.timeout);
  EXPECT_EQ(static_cast<std::uint32_t>(job.uid), wish.user);
  EXPECT_EQ(job.umask, wish.umask);
  EXPECT_EQ(job.redirectStderr, wish.options.standardError == "join");
  EXPECT_EQ(job.taskList, wish.tasks);
  EXPECT_EQ(job.paramNames, wish.names);
  EXPECT_EQ(job.paramValues, wish.values);
}

void expectCommands(const runlet::AdapterContext& job, const Wish& wish) {
  const bool isTemplate = wish.options.command.size() == 1;
  EXPECT_TRUE(!isTemplate || job.arguments == wish.options.command.front());
  for (std::size_t task = 0; task < wish.tasks.size() && !isTemplate; ++task) {
    runlet::TaskStart start;
    Strings words;
    ASSERT_TRUE(composeStart(job, static_cast<std::int32_t>(task), &start));
    ASSERT_TRUE(expandWords(wish, static_cast<std::int32_t>(task), &words));
    EXPECT_EQ(splitAsAdapter(start.commandLine), words);
  }
}

void expectArrival(const std::string& text, const Wish& wish) {
  const MemoryFile file(text);
  runlet::AdapterContext job;
  job.jobFile = file.path();
  ASSERT_TRUE(loadParameterFile(&job)) << text;
  expectFields(job, wish);
  expectCommands(job, wish);
}

TEST(MakeRoundTrip, PreservesEveryValueOrRefusesWhatCannotBeRepresented) {
  int made = 0;
  int refused = 0;
  for (std::uint64_t seed = 1; seed <= 4000 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    Wish wish = randomWish(&random);
    const MemoryFile tasks(taskText(wish.tasks));
    wish.options.tasks = tasks.path();
    MadeJob job;
    Complaint complaint;
    const bool isMade = makeJob(wish.options, "job.xml", &job, &complaint);
    EXPECT_EQ(isMade, canCarry(wish)) << complaint.text << "\n" << job.text;
    EXPECT_EQ(isMade, complaint.text.empty());
    if (isMade) expectArrival(job.text, wish);
    ++(isMade ? made : refused);
  }
  // Both cases must occur.
  EXPECT_GT(made, 2000);
  EXPECT_GT(refused, 500);
}

}  // namespace
}  // namespace runlet_tool
