#include "job/strip_brace.h"

#include <cstring>

namespace runlet {
namespace {

// Finds the first "{" and the last "}"; false if one of them is missing.
bool findBraces(const char* source, const char** open, const char** close) {
  *open = std::strchr(source, '{');
  *close = std::strrchr(source, '}');
  return *open != nullptr && *close != nullptr;
}

}  // namespace

bool stripBrace(const char* source, std::string* destination) {
  const char* open = nullptr;
  const char* close = nullptr;
  if (!findBraces(source, &open, &close)) return false;
  const std::ptrdiff_t length = close - open - 1;
  if (length == 0) return false;
  // A "}" before the "{" makes the length negative, which as a size is too large for any string,
  // and the uncaught length error ends the process. Such jobs have always been rejected this way:
  // loudly, before any task runs.
  destination->assign(open + 1, static_cast<std::size_t>(length));
  return true;
}

bool stripBrace(const char* source, char* destination) {
  const char* open = nullptr;
  const char* close = nullptr;
  if (!findBraces(source, &open, &close)) return false;
  // With reversed braces the unsigned length is far too large, so they are refused here.
  const auto length = static_cast<std::size_t>(close - open) - 1;
  if (length < 1 || length > maxStrippedLength) return false;
  std::memcpy(destination, open + 1, length);
  destination[length] = '\0';
  return true;
}

}  // namespace runlet
