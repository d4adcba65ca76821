#include "job/strip_brace.h"

#include <cstring>

namespace runlet {
namespace {

// Finds the first "{" and the last "}"; false when one of them is missing.
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
  // A "}" before the "{" makes the length negative, a size that no string can have, and
  // the string's length error ends the process. That is how such a job has always been turned
  // away: loudly, before any task runs.
  destination->assign(open + 1, static_cast<std::size_t>(length));
  return true;
}

bool stripBrace(const char* source, char* destination) {
  const char* open = nullptr;
  const char* close = nullptr;
  if (!findBraces(source, &open, &close)) return false;
  // As an unsigned number, reversed braces are far too long and so are refused here.
  const auto length = static_cast<std::size_t>(close - open) - 1;
  if (length < 1 || length > maxStrippedLength) return false;
  std::memcpy(destination, open + 1, length);
  destination[length] = '\0';
  return true;
}

}  // namespace runlet
