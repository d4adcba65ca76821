// Splitting a command line into words.
#pragma once

#include <vector>

namespace runlet {

// Splits `line` in place and returns pointers to its words, followed by a null pointer. The
// pointers are valid as long as `line`.
//
// Words are separated only by spaces; a TAB is an ordinary character. A word that begins with a
// double quote ends at the next one, and the text after that starts a new word. A double quote
// elsewhere is an ordinary character, there are no escapes, and a pair of quotes is an empty word.
// A quoted word without its closing quote is dropped with the rest of the line.
std::vector<char*> splitWords(char* line);

}  // namespace runlet
