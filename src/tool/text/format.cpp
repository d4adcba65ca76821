#include "tool/text/format.h"

#include <cstdarg>
#include <cstdio>

namespace runlet_tool {

// As C has it, and not a template: the compiler looks at the values only of such a function.
std::string withoutLineEnd(const char* format, ...) {  // NOLINT(cert-dcl50-cpp)
  std::va_list values;
  va_start(values, format);
  const int length = std::vsnprintf(nullptr, 0, format, values);
  va_end(values);
  std::string text(static_cast<std::size_t>(length < 0 ? 0 : length), '\0');
  va_start(values, format);
  std::vsnprintf(text.data(), text.size() + 1, format, values);
  va_end(values);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string quantity(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace runlet_tool
