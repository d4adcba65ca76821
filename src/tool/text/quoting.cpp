#include "tool/text/quoting.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tool/text/characters.h"

namespace runlet_tool {
namespace {

// Safe anywhere in a command. No "=", which would make the first word an assignment, and no "~".
constexpr std::string_view safeCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@%+:,./-";

// Made of safe characters only, but not program names at the start of a command.
constexpr std::string_view reservedWords[] = {
    "case",     "coproc", "do", "done",   "elif", "else", "esac",  "fi",   "for",
    "function", "if",     "in", "select", "then", "time", "until", "while"};

bool isReserved(std::string_view word) {
  const auto* const end = std::end(reservedWords);
  return std::find(std::begin(reservedWords), end, word) != end;
}

bool isSafe(std::string_view word) {
  return !word.empty() && word.find_first_not_of(safeCharacters) == std::string_view::npos;
}

// Whether the word begins with a character that can be displayed.
bool isShown(std::string_view word) {
  return utf8CharacterLength(word) > 0 && !isControlCharacter(word);
}

bool needsCodes(std::string_view word) {
  while (!word.empty() && isShown(word)) word.remove_prefix(utf8CharacterLength(word));
  return !word.empty();
}

void appendSingleQuoted(std::string_view word, std::string* line) {
  *line += '\'';
  for (const char c : word) {
    if (c == '\'') {
      *line += "'\\''";
    } else {
      *line += c;
    }
  }
  *line += '\'';
}

// In three octal digits, so that a following digit cannot become part of the code.
void appendCode(char c, std::string* line) {
  char code[5];
  std::snprintf(code, sizeof code, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(c)));
  *line += code;
}

void appendWithCodes(std::string_view word, std::string* line) {
  *line += "$'";
  while (!word.empty()) {
    const std::size_t length = std::max<std::size_t>(utf8CharacterLength(word), 1);
    const char c = word.front();
    if (isShown(word) && c != '\'' && c != '\\') {
      *line += word.substr(0, length);
    } else {
      for (const char byte : word.substr(0, length)) appendCode(byte, line);
    }
    word.remove_prefix(length);
  }
  *line += '\'';
}

constexpr std::size_t maxShownLength = 60;  // bytes of a value

// The start of a long text, not cut within a character.
std::string startOf(const std::string& value) {
  std::size_t length = maxShownLength;
  while (length > maxShownLength - 3 && utf8CharacterLength(value.substr(length)) == 0) --length;
  return value.substr(0, length);
}

}  // namespace

void appendShellWord(std::string_view word, std::string* line) {
  const bool isFirst = line->empty();
  if (!isFirst) *line += ' ';
  if (isSafe(word) && !(isFirst && isReserved(word))) {
    *line += word;
  } else if (needsCodes(word)) {
    appendWithCodes(word, line);
  } else {
    appendSingleQuoted(word, line);
  }
}

std::string shellCommand(const std::vector<char*>& words) {
  std::string line;
  for (const char* word : words) appendShellWord(word, &line);
  return line;
}

std::string shortShellWord(const std::string& word) {
  const bool isLong = word.size() > maxShownLength;
  std::string text;
  appendShellWord(isLong ? startOf(word) : word, &text);
  return isLong ? text + "..." : text;
}

std::string wholeWord(const std::string& word) {
  std::string text;
  appendShellWord(word, &text);
  return text;
}

}  // namespace runlet_tool
