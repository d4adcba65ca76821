// What a compiler has to refuse: a number where the format has a text, and a value too few.

#include "tool/text/format.h"

std::string wrongText() {
  return runlet_tool::withoutLineEnd("%s", 5) + runlet_tool::withoutLineEnd("%s %d", "x");
}
