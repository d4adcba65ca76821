// Quoting words for a shell.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

// Appends `word` to `*line`, quoted so that a shell takes it as exactly one word, after a space
// unless the line is empty. A word with control characters (see isControlCharacter) or invalid
// UTF-8 is written as $'...', which bash, zsh and ksh understand: a terminal would interpret the
// raw bytes.
void appendShellWord(std::string_view word, std::string* line);

// The command line of these words.
std::string shellCommand(const std::vector<char*>& words);

// `word` alone, quoted for a message: if it has more than 60 bytes, only its start and "...".
std::string shortShellWord(const std::string& word);

// The whole word, for what people copy.
std::string wholeWord(const std::string& word);

}  // namespace runlet_tool
