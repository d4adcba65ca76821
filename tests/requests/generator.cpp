#include "generator.h"

#include <algorithm>
#include <utility>

namespace runlet_model {
namespace {

using Strings = std::vector<std::string>;

std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '\t') {
      out += "&#9;";
    } else {
      out += c;
    }
  }
  return out;
}

std::string asReference(char c, bool inHex) {
  const char* digits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  if (!inHex) return "&#" + std::to_string(byte) + ";";
  return std::string("&#x") + digits[byte >> 4U] + digits[byte & 15U] + ";";
}

// A comment whose text is the name of the element.
std::string commentNamedLike(const std::string& element) {
  const std::size_t start = std::min(element.find('<'), element.size() - 1) + 1;
  return "<!--" + element.substr(start, element.find_first_of(" />", start) - start) + "-->";
}

}  // namespace

Generator::Generator(Random* random, const Oddness& odd, std::string folder, Identity caller,
                     bool isUnprivileged)
    : random_(*random), odd_(odd), folder_(std::move(folder)), caller_(caller) {
  case_.isUnprivileged = isUnprivileged;
}

Case Generator::make() {
  case_.jobPath = in(random_.pick<std::string>({"job.xml", "job.xml", "jobs/job.xml"}));
  if (random_.chance(odd_.jobPaths)) case_.jobMode = random_.pick<unsigned>({0600, 0000, 0755});
  case_.arguments = {random_.pick<std::string>(
      {in("UserRunletAdapter"), "UserRunletAdapter", "bin/render", "tools//", "/", "", "%s"})};
  appPath_ = random_.chance(odd_.appPaths) ? appPath() : "";
  const bool isOpen = appPath_.empty() && !random_.chance(odd_.programs / 2);
  case_.recorderMode = isOpen ? 0755 : random_.pick<unsigned>({0755, 0700, 0600});
  case_.jobText = jobText();
  for (const std::string& word : optionWords()) case_.arguments.push_back(word);
  return case_;
}

// The command line

std::string Generator::opcode() {
  static const Strings any = {"GetInfo",  "EvaluateJob", "LaunchApp", "PingLaunch", "NewTask",
                              "PingTask", "ShutDown",    "getinfo",   "NEWTASK",    "NewTask ",
                              "",         "PingTas",     "NewTask2",  "%s",         "--"};
  if (random_.chance(odd_.opcode)) return random_.pick(any);
  return random_.chance(odd_.pings) ? "PingTask" : "NewTask";
}

std::string Generator::oddNumber() {
  static const Strings numbers = {"",
                                  "abc",
                                  "-1",
                                  "-0",
                                  " 7x",
                                  "\t\n 3",
                                  "+2",
                                  "- 1",
                                  "+-1",
                                  "0x10",
                                  "08",
                                  "1e3",
                                  "2 1",
                                  "1.9",
                                  "1,000",
                                  "\xc2\xb2",
                                  "2147483647",
                                  "2147483648",
                                  "-2147483648",
                                  "-2147483649",
                                  "4294967295",
                                  "4294967296",
                                  "4294967298",
                                  "-4294967294",
                                  "9223372036854775807",
                                  "9223372036854775808",
                                  "-9223372036854775808",
                                  "-9223372036854775809",
                                  "99999999999999999999999999",
                                  "0000000000000000000000000000000000002"};
  return random_.pick(numbers);
}

std::string Generator::firstTask() {
  if (random_.chance(odd_.numbers)) return oddNumber();
  static const Strings any = {"0", "-1", "-3", "2", "3", "4", "6", "7", "100", "-2147483648"};
  return random_.chance(odd_.ranges) ? random_.pick(any) : "1";
}

std::string Generator::taskCount() {
  if (random_.chance(odd_.numbers)) return oddNumber();
  static const Strings any = {"0", "-1", "2", "3", "4", "5", "100", "2147483647", "-2147483648"};
  return random_.chance(odd_.ranges) ? random_.pick(any)
                                     : random_.pick<std::string>({"1", "1", "2", "3"});
}

std::string Generator::elapsed() {
  static const Strings any = {"0",      "-1",          "1",          "60000",      "60001",
                              "120000", "120001",      "119999",     "2147460000", "2147460001",
                              "59999",  "-60000",      "-60001",     "-59999",     "2147483647",
                              "5704",   "-2147447296", "-2147447297"};
  return random_.chance(odd_.numbers) ? oddNumber() : random_.pick(any);
}

std::string Generator::appPath() {
  const Strings usual = {in("bin/tool"), in("bin/"), in("bin/x"), "tool"};
  const Strings odd = {
      "bin/tool",     "../bin/x", in("missing/tool"), in("shot/tool"), in("script/x"),
      in("closed/x"), ""};
  return random_.pick(random_.chance(30) ? odd : usual);
}

std::string Generator::jobFileName() {
  const std::string name = case_.jobPath.substr(folder_.size() + 1);
  const bool absolute = random_.chance(75);
  if (!random_.chance(odd_.jobPaths)) return absolute ? case_.jobPath : "./" + name;
  return random_.pick<std::string>({name, name, "", in("missing.xml"), in("jobs"), in("script"),
                                    name + "/", in("missing/job.xml"), in("w %s") + "/../" + name,
                                    in("closed/../") + name, in("script/job.xml")});
}

void Generator::addOption(char letter, const std::string& value) {
  // Joined, or as a separate word; an empty value cannot be joined.
  if (!value.empty() && random_.chance(15)) {
    options_.push_back(std::string("-") + letter + value);
    return;
  }
  options_.push_back(std::string("-") + letter);
  options_.push_back(value);
}

void Generator::disturbOptions() {
  if (options_.empty()) return;
  const std::size_t at = random_.below(options_.size() + 1);
  const auto place = options_.begin() + static_cast<std::ptrdiff_t>(at);
  static const Strings words = {"-x",  "-",  "--", "word", "-xy",    "-o",        "-n", "-:",
                                "-xo", "-W", "",   "-s",   "--help", "-oGetInfo", "-j"};
  switch (random_.below(4)) {
    case 0:
      if (place != options_.end()) options_.erase(place);
      return;
    case 1:
      options_.insert(place, options_[random_.below(options_.size())]);
      return;
    case 2:
      options_.push_back(random_.pick(words));
      return;
    default:
      options_.insert(place, random_.pick(words));
  }
}

std::vector<std::string> Generator::optionWords() {
  struct Option {
    char letter;
    std::string value;
  };
  std::vector<Option> options = {{'o', opcode()}, {'j', jobFileName()}};
  if (!random_.chance(odd_.ranges / 4)) options.push_back({'s', firstTask()});
  if (!random_.chance(odd_.ranges / 4)) options.push_back({'n', taskCount()});
  if (!appPath_.empty()) options.push_back({'a', appPath_});
  if (random_.chance(odd_.rights)) {
    options.push_back({'u', random_.pick<std::string>(
                                {"root", "daemon", "nobody", "no such user", "", "%s", ":"})});
  }
  if (random_.chance(60)) options.push_back({'e', elapsed()});
  if (random_.chance(odd_.options)) options.push_back({'l', in("log")});
  if (random_.chance(odd_.options)) options.push_back({'d', "-o"});
  if (random_.chance(odd_.options)) options.push_back({'o', opcode()});
  if (random_.chance(odd_.options)) options.push_back({'s', firstTask()});
  if (random_.chance(odd_.options)) options.push_back({'n', taskCount()});
  if (random_.chance(odd_.options)) options.push_back({'e', elapsed()});
  if (random_.chance(50)) random_.shuffle(&options);
  for (const Option& option : options) addOption(option.letter, option.value);
  while (random_.chance(odd_.options)) disturbOptions();
  return options_;
}

// Texts of the job file

std::string Generator::spelled(const std::string& text) {
  if (random_.chance(odd_.markup)) {
    static const Strings odd = {"<!-- comment -->", "<b>x</b>", "<![CDATA[]]>", " \n\t ",
                                "<![CDATA[ ]]>",    "<?pi?>",   "&#32;",        "&unknown;"};
    const std::string piece = random_.pick(odd);
    const std::size_t at = random_.chance(50) ? 0 : random_.below(text.size() + 1);
    return escaped(text.substr(0, at)) + piece + escaped(text.substr(at));
  }
  const std::size_t style = random_.below(10);
  if (style < 2) return "<![CDATA[" + text + "]]>";
  if (style == 2) return "\n   " + escaped(text) + "\t\n";
  if (style > 3) return escaped(text);
  std::string out;
  for (const char c : text) {
    const bool isAscii = static_cast<unsigned char>(c) < 128;
    out += isAscii && random_.chance(20) ? asReference(c, random_.chance(50))
                                         : escaped(std::string(1, c));
  }
  return out;
}

std::string Generator::braced(const std::string& text) {
  if (!random_.chance(odd_.braces)) {
    const bool decorated = random_.chance(5);
    return (decorated ? "before {" : "{") + text + (decorated ? "} after" : "}");
  }
  return random_.pick<std::string>({text, "{" + text, text + "}", "{}", "}" + text + "{", "",
                                    "{" + text + "}{x}", "{{" + text + "}}", "}" + text + "{x}",
                                    "{ }", "x}{", "}{"});
}

std::string Generator::element(const std::string& name, const std::string& content) {
  if (content.empty() && random_.chance(50)) return "<" + name + "/>";
  const bool withAttribute = random_.chance(odd_.markup);
  return "<" + name + (withAttribute ? " a='{&lt;}'" : "") + ">" + content + "</" + name + ">";
}

std::string Generator::noise() {
  static const Strings nodes = {"<!-- {comment} -->",
                                "<!--cmdData-->",
                                "<!--Task-->",
                                "<!--Param-->",
                                "<!--TaskList-->",
                                "<!--JobParams-->",
                                "text",
                                "<Unknown/>",
                                "<Unknown>{x}</Unknown>",
                                "<?pi data?>",
                                "<![CDATA[ {x} ]]>",
                                "<!DOCTYPE x>",
                                "Param",
                                "<Name>{x}</Name>",
                                "<Task/>",
                                "<Param/>",
                                "<![CDATA[Param]]>",
                                "<Params>{p}</Params>",
                                "<arguments>{x}</arguments>"};
  return random_.pick(nodes);
}

// The job file

std::string Generator::jobText() {
  std::vector<std::string> parts = elements();
  if (random_.chance(30)) random_.shuffle(&parts);
  std::vector<std::string> lists = {taskList(), jobParams()};
  disturbStructure(&lists);
  const std::size_t at = random_.below(parts.size() + 1);
  parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(at), lists[0]);
  for (std::size_t i = 1; i < lists.size(); ++i) {
    const std::size_t position = at + i + random_.below(parts.size() - at - i + 1);
    parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(position), lists[i]);
  }
  disturbStructure(&parts);
  std::string content;
  for (const std::string& part : parts) content += part + (random_.chance(90) ? "\n" : "\r\n");
  std::vector<std::string> inRoot = {element("cmdData", content)};
  disturbStructure(&inRoot);
  content.clear();
  for (const std::string& part : inRoot) content += part;
  std::vector<std::string> nodes = {element(random_.chance(90) ? "Job" : "cmdData", content)};
  disturbStructure(&nodes);
  if (random_.chance(odd_.structure)) nodes.insert(nodes.begin(), "<?xml version='1.0'?>");
  std::string text = random_.chance(odd_.markup) ? "\xef\xbb\xbf" : "";
  for (const std::string& node : nodes) text += node;
  disturbBytes(&text);
  return text;
}

// Sometimes omits, duplicates or moves a part, or inserts something else.
void Generator::disturbStructure(std::vector<std::string>* parts) {
  while (random_.chance(odd_.structure)) {
    const std::size_t at = random_.below(parts->size());
    const auto place = parts->begin() + static_cast<std::ptrdiff_t>(at);
    const std::size_t kind = random_.below(5);
    if (kind == 0) {
      *place = "";
    } else if (kind == 1) {
      const std::string copy = *place;
      parts->insert(place, copy);
    } else if (kind == 2) {
      std::swap(*place, (*parts)[random_.below(parts->size())]);
    } else {
      const std::string other = random_.chance(30) ? noise() : commentNamedLike(*place);
      parts->insert(place + (random_.chance(25) ? 1 : 0), other);
    }
  }
}

void Generator::disturbBytes(std::string* text) {
  if (!random_.chance(odd_.bytes)) return;
  static const std::string structural = "<>/&;{}\"'![]-?= \t\n\r#x%\xc3\xe2\xf0\x80";
  for (std::size_t left = 1 + random_.below(2); left > 0 && !text->empty(); --left) {
    const std::size_t at = random_.below(text->size());
    const std::size_t kind = random_.below(12);
    if (kind > 7) {
      // Not characters that define the file's structure, so that more of the damaged files can be
      // read.
      const char c = (*text)[at];
      if ((c >= '0' && c <= '9') || c == ' ') (*text)[at] = "0 9-x"[random_.below(5)];
    } else if (kind < 2) {
      text->erase(at, 1);
    } else if (kind < 4) {
      text->insert(at, 1, (*text)[at]);
    } else if (kind == 4) {
      (*text)[at] = static_cast<char>(random_.below(256));
    } else if (kind == 5) {
      (*text)[at] = structural[random_.below(structural.size())];
    } else if (kind == 6) {
      text->insert(at, 1, structural[random_.below(structural.size())]);
    } else if (random_.chance(40)) {
      text->resize(at + 1);
    }
  }
}

std::string Generator::setting(const std::string& name, const Strings& odd, const Strings& usual,
                               unsigned oddPercent, unsigned absentPercent) {
  if (random_.chance(absentPercent)) return "";
  return element(name, spelled(random_.pick(random_.chance(oddPercent) ? odd : usual)));
}

std::string Generator::numberSetting(const std::string& name, const Strings& usual) {
  const Strings odd = {oddNumber()};
  return setting(name, odd, usual, odd_.numbers, 30);
}

std::string Generator::idSetting(const std::string& name, std::uint32_t own,
                                 unsigned absentPercent) {
  const std::string ownText = std::to_string(own);
  const Strings odd = {"-1", "0", "65534", "1", "100", "abc", "4294967295", "-2", oddNumber()};
  const Strings others = {" " + ownText + "x", "65534", "65534", "65533", "1"};
  const Strings safe = {ownText};
  return setting(name, odd, random_.chance(odd_.rights) ? others : safe, odd_.rights / 4,
                 absentPercent);
}

std::string Generator::workingFolder() {
  const Strings odd = {
      in("closed"),       in("closed"),   in("closed"), in("missing"),  in("script"),
      "missing",          in("w %s"),     "",           in("script/x"), std::string(300, 'x'),
      odd_.foreignFolder, in("closed/..")};
  const Strings usual = {in("shot"), in("closed"),           folder_,         "shot",    ".",
                         "..",       " " + in("shot") + " ", "shot/../shot/", in("w %s")};
  return setting("WorkingFolder", odd, usual, odd_.folders, 100 - odd_.folders);
}

std::vector<std::string> Generator::elements() {
  std::vector<std::string> all;
  if (!random_.chance(odd_.structure)) {
    all.push_back(element("Arguments", spelled(braced(argumentTemplate()))));
  }
  all.push_back(workingFolder());
  all.push_back(setting("LogFolder", {""}, {in("log")}, 5, 50));
  all.push_back(setting("Outputs", {""}, {"{out}"}, 5, 50));
  all.push_back(numberSetting("TaskNameIdx", {"1"}));
  all.push_back(numberSetting("TaskTimeout",
                              {"0", "1", "2", "30", "-1", "35791", "35792", "-35791", "71582788"}));
  all.push_back(idSetting("uid", caller_.uid, odd_.rights * 3 / 5));
  all.push_back(idSetting("gid", caller_.gid, odd_.rights / 8));
  all.push_back(numberSetting("umask", {"18", "022", "0", "63", "511", "512", "-1", "77"}));
  all.push_back(setting("redirectStderr", {"", "\xc3\xbf", "&", "[", "\"Y\"", "-1"},
                        {"Y", "yes", "t", "True", "1", "10", "N", "no", "false", "0", "2", " Yes"},
                        odd_.numbers, 30));
  return all;
}

std::string Generator::value() {
  static const Strings values = {
      "shot_A", "101",     "a b",         "exit:3",   "err:said", "out:told", "kill:9",   "%tn",
      "%tx",    "\"q r\"", "caf\xc3\xa9", "<&>",      "'",        "a  b",     "x\"y z\"", "{n}",
      "-flag",  "0",       "\"",          "exit:200", "0012",     "a\nb",     "}",        " lead"};
  if (random_.chance(2)) return std::string(1990 + random_.below(20), 'v');
  return random_.pick(values);
}

std::string Generator::taskEntry() {
  std::string entry = value();
  while (random_.chance(60)) {
    entry += '\t';
    if (!random_.chance(20)) entry += value();
  }
  return entry;
}

std::string Generator::taskList() {
  std::vector<std::string> tasks;
  for (std::size_t left = 1 + random_.below(5); left > 0; --left) {
    const std::string params =
        random_.chance(odd_.structure) ? noise() : element("Params", spelled(braced(taskEntry())));
    tasks.push_back(element("Task", params));
  }
  disturbStructure(&tasks);
  std::string content;
  for (const std::string& task : tasks) content += task + "\n";
  return element("TaskList", random_.chance(2) ? "" : content);
}

std::string Generator::parameter(bool isLate) {
  std::vector<std::string> parts = {element("Name", spelled(braced("name"))),
                                    element("Value", spelled(braced(value())))};
  if (random_.chance(odd_.parameters)) {
    const std::size_t kind = random_.below(6);
    if (kind == 0) parts.pop_back();
    if (kind == 1) std::swap(parts[0], parts[1]);
    if (kind == 2) parts.insert(parts.begin() + 1, noise());
    if (kind == 3) parts.insert(parts.begin(), noise());
    if (kind == 4) parts.push_back(parts[random_.below(2)]);
    if (kind == 5) parts[random_.below(2)] = random_.chance(30) ? "" : "<Name/>";
  }
  std::string content;
  for (const std::string& part : parts) content += part;
  const bool isExtra = random_.chance(isLate ? 20 : odd_.parameters);
  return element(isExtra ? "Extra" : "Param", content);
}

std::string Generator::jobParams() {
  std::vector<std::string> parameters;
  for (std::size_t left = random_.below(6); left > 0; --left) {
    parameters.push_back(parameter(parameters.size() > 1));
  }
  if (random_.chance(odd_.parameters) && !parameters.empty()) {
    const std::size_t at = random_.below(std::min<std::size_t>(parameters.size(), 2) + 1);
    parameters.insert(parameters.begin() + static_cast<std::ptrdiff_t>(at), noise());
  }
  if (!parameters.empty()) disturbStructure(&parameters);
  std::string content;
  for (const std::string& one : parameters) content += one + "\n";
  return element("JobParams", content);
}

std::string Generator::program() {
  static const Strings odd = {"script",       "plain",        "closed/secret",   "secret",
                              "%jp2",         "missing",      "./missing",       "",
                              "\"\"",         "script",       "../bin/recorder", "%tp1",
                              "%jp1",         "plain",        "\"rec order\"",   "./bin/recorder",
                              "bin/recorder", "bin",          "recorder/",       "\"recorder",
                              "recorder\"",   "\"recorder\"x"};
  if (!appPath_.empty()) {
    return random_.chance(odd_.programs) ? random_.pick(odd) : std::string("recorder");
  }
  if (random_.chance(odd_.programs)) {
    const std::string picked = random_.chance(10) ? "bin/script" : random_.pick(odd);
    return random_.chance(30) ? in("bin/") + picked : picked;
  }
  return random_.pick<std::string>(
      {in("bin/recorder"), in("bin/recorder"), "\"" + in("bin/recorder") + "\"", "recorder"});
}

std::string Generator::placeholder() {
  static const Strings wrong = {"%ta", "%t", "%jx", "%5j", "%12t%", "%j%jp1", "%tN", "%T%tq"};
  if (random_.chance(odd_.wrongPlaceholders)) return random_.pick(wrong);
  static const Strings forms = {"tn",
                                "tn",
                                "tp1",
                                "tp2",
                                "tp3",
                                "tp",
                                "tp0",
                                "tp12",
                                "jp1",
                                "jp2",
                                "jp3",
                                "jp4",
                                "jp",
                                "jp5",
                                "jp6",
                                "%",
                                "x",
                                "",
                                "P1",
                                "tp01",
                                "jp4294967297",
                                "tp00000000000000000000000000000002",
                                "jp02x"};
  static const Strings widths = {"",
                                 "",
                                 "",
                                 "",
                                 "2",
                                 "4",
                                 "12",
                                 "0",
                                 "07",
                                 "40",
                                 "31",
                                 "33",
                                 "99999",
                                 "4294967299",
                                 "2147483648",
                                 "300",
                                 "00000000000000000000000000000000005"};
  // In separate statements, so that every compiler draws them in the same order.
  const std::string width = random_.pick(widths);
  return "%" + width + random_.pick(forms);
}

std::string Generator::argument() {
  static const Strings plain = {
      "a",       "-x",       "\"a b\"",     "\"a b\"c", "a\"b c\"", "\"\"",     "a\tb",
      "\tlead",  "kill:9",   "kill:9",      "err:oops", "err:oops", "err:no",   "\t",
      "exit:3",  "err:oops", "out:well",    "kill:9",   "exit:255", "exit:128", "\"err:a b\"",
      "\\\"",    "'a b'",    "caf\xc3\xa9", "$HOME",    "`x`",      "*",        "exit:256",
      "kill:15", "exit:127", "\"out: b \"", "100%%",    "\"open",   "&",        "<"};
  if (random_.chance(odd_.placeholders)) {
    const std::string before = random_.pick<std::string>({"", "[", "exit:", "err:", "\"out:"});
    const std::string after = before == "\"out:" ? "\"" : before == "[" ? "]" : "";
    return before + placeholder() + after;
  }
  return random_.pick(plain);
}

std::string Generator::argumentTemplate() {
  std::string line = random_.chance(odd_.programs / 4) ? " " : "";
  line += program();
  const bool isBare = random_.chance(appPath_.empty() ? 4 : 12);
  for (std::size_t left = isBare ? 0 : 1 + random_.below(5); left > 0; --left) {
    line += random_.chance(5) ? "  " : " ";
    line += argument();
  }
  // About the maximum length of an expansion.
  if (random_.chance(odd_.placeholders / 20)) line.resize(3996 + random_.below(6), 'l');
  return line;
}

}  // namespace runlet_model
