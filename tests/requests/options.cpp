#include "options.h"

#include "model.h"

namespace runlet_model {
namespace {

void store(char letter, const std::string& value, OptionValues* values) {
  if (letter == 'o') values->opcode = value;
  if (letter == 'j') values->jobFile = value;
  if (letter == 'a') values->appPath = value;
  if (letter == 'u') values->userName = value;
  if (letter == 's') values->firstTask = number(value);
  if (letter == 'n') values->taskCount = number(value);
  if (letter == 'e') values->elapsedMs = number(value);
}

// Parses one word of option letters at `*index`, and the next word if it is a value.
void readWord(const std::vector<std::string>& arguments, std::size_t* index, OptionValues* values) {
  const std::string word = arguments[*index];
  for (std::size_t at = 1; at < word.size(); ++at) {
    const std::string letter(1, word[at]);
    if (letter == ":" || std::string("oljaesnud").find(letter) == std::string::npos) {
      values->diagnostics += arguments[0] + ": invalid option -- '" + letter + "'\n";
    } else if (at + 1 < word.size()) {
      return store(word[at], word.substr(at + 1), values);
    } else if (*index + 1 < arguments.size()) {
      return store(word[at], arguments[++*index], values);
    } else {
      values->diagnostics += arguments[0] + ": option requires an argument -- '" + letter + "'\n";
    }
  }
}

}  // namespace

OptionValues readOptions(const std::vector<std::string>& arguments) {
  OptionValues values;
  for (std::size_t i = 1; i < arguments.size() && arguments[i] != "--"; ++i) {
    const bool isOption = arguments[i].size() > 1 && arguments[i][0] == '-';
    if (isOption) readWord(arguments, &i, &values);
  }
  return values;
}

std::string adapterName(const std::string& startedBy) {
  std::string path = startedBy.empty() ? "." : startedBy;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const std::string name = path == "/" ? path : path.substr(path.rfind('/') + 1);
  return name == "UserRunletAdapter" ? "Command Line Tool" : name;
}

}  // namespace runlet_model
