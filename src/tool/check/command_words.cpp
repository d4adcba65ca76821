#include "tool/check/command_words.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "tool/check/rules.h"
#include "tool/job/danger.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

using runlet::PlaceholderUse;

// A composed command line.
struct Line {
  const Preview& preview;
  std::int32_t number;  // of the task
  Inspection* inspection;

  const std::string& text() const {
    return preview.start.commandLine;
  }
};

// A word and its place in the line.
struct Word {
  std::string_view text;
  std::size_t begin;  // without the opening quote
  std::size_t end;    // of the space or quote that closes it, or of the line
  bool isQuoted;
};

// The length of what -a has put before the expansion.
std::size_t prefixLength(const Line& line) {
  return line.inspection->context.appPath.rfind('/') + 1;
}

// The offset in the template that byte `at` of the line comes from: for a byte of a value, that of
// its placeholder.
std::size_t templateOffset(const Line& line, std::size_t at) {
  const std::size_t prefix = prefixLength(line);
  if (at < prefix) return 0;
  const std::size_t offset = at - prefix;
  const std::vector<PlaceholderUse>& uses = line.preview.uses;
  const auto isBefore = [](std::size_t wanted, const PlaceholderUse& use) {
    return wanted < use.valueBegin;
  };
  const auto next = std::upper_bound(uses.begin(), uses.end(), offset, isBefore);
  if (next == uses.begin()) return offset;
  const PlaceholderUse& last = *(next - 1);
  return offset < last.valueEnd ? last.begin : last.end + (offset - last.valueEnd);
}

void findIn(const Line& line, RuleId rule, std::size_t at, std::string_view text, std::string why,
            std::string instead) {
  const std::size_t offset = templateOffset(line, at);
  if (addTaskToFinding(line.inspection, rule, offset, line.number)) return;
  findForTask(line.inspection, rule, offset, line.number, placeInTemplate(*line.inspection, offset),
              text, std::move(why), std::move(instead));
}

// Word `index` of the vector, with what the vector does not contain. `afterLast` is the offset
// after the word before it.
Word wordAt(const Line& line, std::size_t index, std::size_t afterLast) {
  const char* start = line.preview.words[index];
  const auto begin = static_cast<std::size_t>(start - line.preview.cut.data());
  const std::string_view text = start;
  return {text, begin, begin + text.size(), begin > afterLast && line.text()[begin - 1] == '"'};
}

// The quote that closes one left open by an earlier word, as in -x="a b", is no finding of its own.
// `*isOpen` carries this state from word to word.
void inspectInnerQuotes(const Line& line, const Word& word, bool* isOpen) {
  const auto count = std::count(word.text.begin(), word.text.end(), '"');
  if (word.isQuoted || count == 0) return;
  const bool wasOpen = *isOpen;
  *isOpen = wasOpen != (count % 2 == 1);
  if (wasOpen) return;
  findIn(line, RuleId::quoteInWord, word.begin + word.text.find('"'), word.text,
         "A double quote inside a word is an ordinary character, and reaches the program.",
         "Put the quotes around the whole word.");
}

void inspectClosingQuote(const Line& line, const Word& word) {
  const std::string& text = line.text();
  const std::size_t next = word.end + 1;
  if (word.isQuoted && next < text.size() && text[next] != ' ') {
    const std::size_t end = std::min(text.find(' ', next), text.size());
    findIn(line, RuleId::afterQuote, next, text.substr(word.begin - 1, end - word.begin + 1),
           "What follows a closing quote without a space is the next word.",
           "Put the quotes around the whole word.");
  }
}

void inspectWordSpace(const Line& line, const Word& word) {
  if (word.isQuoted) return;
  const auto* const found = std::find_if(word.text.begin(), word.text.end(), isWhiteSpace);
  if (found == word.text.end()) return;
  findIn(line, RuleId::whiteSpaceInWord,
         word.begin + static_cast<std::size_t>(found - word.text.begin()), word.text,
         "Only a space separates words: this white space reaches the program as part of the word.",
         "Write a space, or put the word in double quotes if this is meant.");
}

constexpr std::string_view shells[] = {"sh", "bash", "dash", "ksh", "zsh", "csh", "tcsh", "fish"};

bool isShell(std::string_view program) {
  const std::string_view name = program.substr(program.rfind('/') + 1);
  return std::find(std::begin(shells), std::end(shells), name) != std::end(shells);
}

// Pipes and lists, redirections such as 2>/dev/null and &>log, and the end of a command.
bool isOperator(std::string_view word) {
  constexpr std::string_view operators[] = {"|", "||", "&", "&&"};
  if (word.empty()) return false;
  const std::size_t sign = std::min(word.find_first_not_of("&0123456789"), word.size() - 1);
  return word[sign] == '>' || word[sign] == '<' || word.ends_with(';') ||
         std::find(std::begin(operators), std::end(operators), word) != std::end(operators);
}

bool hasSingleQuotes(std::string_view word) {
  return word.starts_with('\'') || word.find("='") != std::string_view::npos;
}

bool beginsName(char c) {
  return c == '{' || c == '(' || c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool hasVariable(std::string_view word) {
  for (std::size_t i = word.find('$'); i != std::string_view::npos; i = word.find('$', i + 1)) {
    if (i + 1 < word.size() && beginsName(word[i + 1])) return true;
  }
  return false;
}

bool isShellSyntax(const Word& word) {
  if (hasVariable(word.text) || word.text.find('`') != std::string_view::npos) return true;
  return !word.isQuoted && (isOperator(word.text) || hasSingleQuotes(word.text) ||
                            word.text == "~" || word.text.starts_with("~/"));
}

void inspectSyntax(const Line& line, const Word& word) {
  if (!isShellSyntax(word) || isShell(line.preview.words.front())) return;
  findIn(line, RuleId::shellSyntax, word.begin, word.text,
         "Tasks are started without a shell; the program gets this unchanged.",
         "Let a shell run it, with /bin/sh -c \"...\", or write a script.");
}

// Text after the last word can only be a quoted word that is not closed.
void inspectLineEnd(const Line& line, std::size_t afterLast) {
  const std::string& text = line.text();
  const std::size_t begin = text.find_first_not_of(' ', afterLast);
  if (begin == std::string::npos) return;
  findIn(line, RuleId::openQuote, begin, text.substr(begin),
         "This quote is not closed; the word and everything after it are dropped.",
         "Close the quote.");
}

void inspectProgram(const Line& line) {
  const Preview& preview = line.preview;
  if (preview.outcome == Outcome::cannotExecute) {
    findIn(line, RuleId::emptyCommand, prefixLength(line), line.text(),
           "There is no program to start, which is reported as \"No such file or directory\".",
           "Write the program and its arguments into Arguments.");
  }
}

void inspectChmod(const Line& line) {
  const std::string& path = line.preview.start.chmodPath;
  const std::size_t prefix = prefixLength(line);
  if (!isSafeInShell(path)) {
    findIn(line, RuleId::shellInChmod, prefix, path,
           "With an application path (-a) a shell runs /bin/chmod 755 on this path, without "
           "quoting it and with the rights that the adapter was started with, usually root's.",
           "Use only letters, digits and _ @ % + = : , . / - in the path.");
  }
  if (prefix > 0 && line.text().size() > prefix && line.text()[prefix] == '/') {
    findIn(line, RuleId::folderBeforePath, prefix, path,
           "The folder of the application path (-a) is put before the command, even before a full "
           "path.",
           "Write the program's name without its folder.");
  }
}

}  // namespace

void inspectWords(const Preview& preview, std::int32_t number, Inspection* inspection) {
  const Line line = {preview, number, inspection};
  inspectProgram(line);
  if (!inspection->context.appPath.empty()) inspectChmod(line);
  std::size_t afterLast = 0;
  bool isOpen = false;
  for (std::size_t i = 0; i < preview.words.size(); ++i) {
    const Word word = wordAt(line, i, afterLast);
    inspectInnerQuotes(line, word, &isOpen);
    inspectClosingQuote(line, word);
    inspectWordSpace(line, word);
    inspectSyntax(line, word);
    afterLast = std::min(word.end + 1, line.text().size());
  }
  inspectLineEnd(line, afterLast);
}

}  // namespace runlet_tool
