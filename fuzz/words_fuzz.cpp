// Splitting a command line: the input is the line, up to its first NUL.

#include "exec/words.h"
#include "fuzz.h"
#include "model.h"

void runlet_fuzz::tryInput(const std::uint8_t* data, std::size_t size) {
  const std::string line = runlet_fuzz::texts(data, size, 1)[0];
  // Of exactly the size that the launcher allocates.
  std::vector<char> scratch(line.c_str(), line.c_str() + line.size() + 1);
  const std::vector<char*> pointers = runlet::splitWords(scratch.data());
  runlet_fuzz::require(!pointers.empty() && pointers.back() == nullptr, "a null at the end");
  const std::vector<std::string> words(pointers.begin(), pointers.end() - 1);
  runlet_fuzz::require(words == runlet_model::words(line), "the model's words");
}
