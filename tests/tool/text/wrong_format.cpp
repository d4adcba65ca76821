// The compiler must refuse this: a number for a text in the format, and a missing value.

#include "tool/text/format.h"

std::string wrongText() {
  return runlet_tool::withoutLineEnd("%s", 5) + runlet_tool::withoutLineEnd("%s %d", "x");
}
