#include "exec/words.h"

#include <cstring>

namespace runlet {

std::vector<char*> splitWords(char* line) {
  std::vector<char*> words;
  for (char* next = line; *next != '\0';) {
    if (*next == ' ') {
      ++next;
      continue;
    }
    const bool quoted = *next == '"';
    char* word = quoted ? next + 1 : next;
    char* end = std::strchr(word, quoted ? '"' : ' ');
    // A quoted word without its closing quote is dropped; a plain word may end with the line.
    if (end != nullptr || !quoted) words.push_back(word);
    if (end == nullptr) break;
    *end = '\0';
    next = end + 1;
  }
  words.push_back(nullptr);
  return words;
}

}  // namespace runlet
