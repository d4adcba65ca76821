// Splitting a command line into words.
#pragma once

#include <vector>

namespace runlet {

// Cuts `line` up in place and returns pointers to its words, followed by a null pointer. The
// pointers are good as long as `line` is.
//
// Words are separated by spaces alone; a TAB is an ordinary character. A word that begins with a
// double quote runs to the next one, and what follows that starts a new word. A double quote
// elsewhere is an ordinary character, there are no escapes, and a pair of quotes is an empty
// word. A quoted word without its closing quote is dropped, with all that follows.
std::vector<char*> splitWords(char* line);

}  // namespace runlet
