// Words for a shell.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace runlet_tool {

// Appends `word` to `*line` so that a shell takes it as exactly this one word, with a space in
// front of it unless the line is empty. Control characters (see isControlCharacter) and bytes
// that are not UTF-8 make it a $'...' word, as bash, zsh and ksh have them: shown or pasted as they
// are, a terminal would act on them.
void appendShellWord(std::string_view word, std::string* line);

// A command of these words.
std::string shellCommand(const std::vector<char*>& words);

// `word` alone, so written, for a message: of more than 60 bytes only the first, and "..." after
// them.
std::string shortShellWord(const std::string& word);

}  // namespace runlet_tool
