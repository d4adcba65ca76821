#include "large_job.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <random>

namespace runlet_model {
namespace {

constexpr std::size_t longestLookup = 2000;
constexpr std::size_t longestExpansion = 3999;

// Sizes of inline strings, allocation classes and pages, and the limits of lookups and expansions.
constexpr std::size_t lengthThresholds[] = {8,   15,  16,  24,   32,   48,   64,
                                            128, 256, 512, 1024, 2000, 3999, 4096};

std::size_t briefLength(Random* random) {
  return 1 + random->below(64);
}

std::size_t borderLength(Random* random) {
  const std::size_t threshold = lengthThresholds[random->below(std::size(lengthThresholds))];
  return threshold + random->below(5) - 2;
}

std::size_t mixedLength(Random* random) {
  if (random->chance(75)) return briefLength(random);
  return random->chance(80) ? 1 + random->below(600) : borderLength(random);
}

std::size_t lengthOf(TextKind kind, Random* random) {
  switch (kind) {
    case TextKind::brief:
      return briefLength(random);
    case TextKind::mixed:
      return mixedLength(random);
    case TextKind::lengthy:
      return 200 + random->below(5801);
    case TextKind::borders:
      break;
  }
  return borderLength(random);
}

// Inserts characters that are special to the file, the fields or the words. Spaces are never
// adjacent, since the XML library condenses them.
void addSpecialCharacters(std::string* text, Random* random) {
  static const std::string special = " \t\t&<>\"'{}%";
  const std::size_t count = random->below(2 + text->size() / 64);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = random->below(text->size());
    const char c = special[random->below(special.size())];
    const bool isNextToSpace =
        (at > 0 && (*text)[at - 1] == ' ') || (at + 1 < text->size() && (*text)[at + 1] == ' ');
    if (c != ' ' || !isNextToSpace) (*text)[at] = c;
  }
}

std::string textOf(std::size_t number, std::size_t length, const LargeShape& shape,
                   Random* random) {
  // Texts above 1999 bytes are reported as too long.
  std::string text =
      numberedText(number, shape.isClean ? std::min(length, longestLookup - 1) : length);
  if (!shape.isClean) addSpecialCharacters(&text, random);
  return text;
}

// Copies whole runs of characters, since files are large and some builds are slow.
std::string escapedXml(const std::string& text) {
  std::string out;
  std::size_t at = 0;
  for (std::size_t end = 0; (end = text.find_first_of("&<\t", at)) != std::string::npos;) {
    out.append(text, at, end - at);
    out += text[end] == '&' ? "&amp;" : text[end] == '<' ? "&lt;" : "&#9;";
    at = end + 1;
  }
  return out.append(text, at);
}

// Equivalent variants of white space and escaping.
struct Layout {
  const char* beforeTask;
  const char* inTask;
  const char* openText;
  const char* closeText;
};

constexpr Layout layouts[] = {
    {"", "", "{", "}"},
    {"\n", "", "{", "}"},
    {"\n      ", "\n        ", "{", "}"},
    {"\n", "", "\n  {", "}\n  "},
    {"\r\n", "<!-- of the task -->", "{", "}"},
    {"\n", " ", "before {", "} behind"},
};

std::string textElement(const Layout& layout, const char* name, const std::string& text) {
  std::string element = layout.inTask;
  element.append("<").append(name).append(">").append(layout.openText);
  element.append(escapedXml(text)).append(layout.closeText);
  return element.append("</").append(name).append(">");
}

std::string taskElement(const Layout& layout, const std::string& entry) {
  return layout.beforeTask + ("<Task>" + textElement(layout, "Params", entry)) + "</Task>";
}

// The length of an entry or value in an expansion.
std::size_t lookedUpLength(const std::string& text) {
  return std::min(text.size(), longestLookup);
}

std::size_t longestLookedUp(const std::vector<std::string>& texts) {
  std::size_t longest = 0;
  for (const std::string& text : texts) longest = std::max(longest, lookedUpLength(text));
  return longest;
}

}  // namespace

std::string numberedText(std::size_t number, std::size_t length) {
  static const std::string letters =
      "abcdefghijklmnopqrstuvwxyz_ABCDEFGHIJKLMNOPQRSTUVWXYZ.0123456789/";
  std::string text = std::to_string(number) + ":";
  text.resize(length);
  for (std::size_t at = std::to_string(number).size() + 1; at < length; ++at) {
    text[at] = letters[(number * 7 + at + at / letters.size()) % letters.size()];
  }
  return text;
}

std::vector<std::string> evenTexts(std::size_t length, std::size_t count) {
  std::vector<std::string> texts = {numberedText(1, length)};
  for (std::size_t i = 2; i <= count + 1; ++i) texts.push_back(numberedText(i, 55));
  return texts;
}

Random startOf(const std::string& testName, std::uint64_t seed, std::uint64_t number) {
  const std::string text = testName + " " + std::to_string(seed) + " " + std::to_string(number);
  std::seed_seq sequence(text.begin(), text.end());
  std::uint32_t mixed[2];
  sequence.generate(mixed, mixed + 2);
  return Random(std::uint64_t{mixed[0]} << 32U | mixed[1]);
}

std::size_t anyFileSize(Random* random) {
  const double exponent = 12 + 9 * (static_cast<double>(random->below(1001)) / 1000);
  return static_cast<std::size_t>(std::exp2(exponent));
}

LargeJob makeLargeJob(Random* random, const LargeShape& shape) {
  LargeJob job;
  job.layout = shape.isClean ? random->below(3) : random->below(std::size(layouts));
  Lists& lists = job.lists;
  for (std::size_t i = 1; i <= shape.parameters; ++i) {
    const bool isLast = i == shape.parameters;
    const std::size_t length = isLast ? shape.lastLength : lengthOf(shape.values, random);
    lists.paramNames.push_back(std::string("p").append(std::to_string(i)));
    lists.paramValues.push_back(textOf(i, length, shape, random));
  }
  // Folder, user, group and templates are not known yet; templates take up to 8 bytes per
  // parameter.
  const std::size_t reserve = 200 + std::min<std::size_t>(8 * shape.parameters, 3000);
  const Layout& layout = layouts[job.layout];
  const std::string last = numberedText(shape.maxTasks, shape.lastLength);
  std::size_t size = fileOf(job, "").size() + taskElement(layout, last).size() + reserve;
  while (lists.taskList.size() + 1 < shape.maxTasks) {
    const std::size_t number = lists.taskList.size() + 1;
    const std::string entry = textOf(number, lengthOf(shape.tasks, random), shape, random);
    size += taskElement(layout, entry).size();
    if (size > shape.fileSize && number >= shape.minTasks) break;
    lists.taskList.push_back(entry);
  }
  lists.taskList.push_back(numberedText(lists.taskList.size() + 1, shape.lastLength));
  job.fileSize = shape.fileSize;
  return job;
}

std::string fileOf(const LargeJob& job, const std::string& pattern) {
  const Layout& layout = layouts[job.layout];
  std::string text = "<Job>\n<cmdData>\n<Arguments>{" + escapedXml(pattern) + "}</Arguments>\n";
  text += "<WorkingFolder>" + job.folder + "</WorkingFolder>\n<TaskTimeout>60</TaskTimeout>\n";
  text += "<uid>" + std::to_string(job.uid) + "</uid>\n<gid>" + std::to_string(job.gid) +
          "</gid>\n<umask>18</umask>\n<TaskList>";
  for (const std::string& entry : job.lists.taskList) text += taskElement(layout, entry);
  text += "\n</TaskList>\n<JobParams>";
  for (std::size_t i = 0; i < job.lists.paramNames.size(); ++i) {
    text += layout.beforeTask + ("<Param>" + textElement(layout, "Name", job.lists.paramNames[i])) +
            textElement(layout, "Value", job.lists.paramValues[i]) + "</Param>";
  }
  text += "</JobParams>\n</cmdData>\n</Job>\n";
  if (text.size() < job.fileSize) text.resize(job.fileSize, '\n');
  return text;
}

std::vector<std::string> patternsFor(const LargeJob& job, const std::string& program) {
  const Lists& lists = job.lists;
  const std::size_t longestEntry = longestLookedUp(lists.taskList);
  std::vector<std::string> patterns = {program + " %tn \"%tp1\" \"%tp2\" \"%tp3\" %tp4"};
  // If there is room, the tasks' entries are expanded together with the parameters.
  const std::size_t room = longestExpansion - program.size() - 10;
  const bool hasEntry = longestEntry < room / 2;
  const std::string start = program + (hasEntry ? " %tn \"%tp1\"" : " %tn");
  const std::size_t taken = hasEntry ? longestEntry + 3 : 0;
  std::size_t length = room;
  for (std::size_t i = 1; i <= lists.paramNames.size(); ++i) {
    const std::size_t more = lookedUpLength(lists.paramValues[i - 1]) + 3;
    if (length + more > room) {
      patterns.push_back(start);
      length = taken;
    }
    patterns.back() += " \"%jp" + std::to_string(i) + "\"";
    length += more;
  }
  return patterns;
}

}  // namespace runlet_model
