#include "tool/make/complaint.h"

#include <cstddef>

#include "tool/text/shell_quote.h"
#include "tool/text/utf8.h"

namespace runlet_tool {
namespace {

constexpr std::size_t maxShownLength = 60;  // bytes of a value

// The start of a text that is too long, without half a character at its end.
std::string startOf(const std::string& value) {
  std::size_t length = maxShownLength;
  while (length > maxShownLength - 3 && utf8CharacterLength(value.substr(length)) == 0) --length;
  return value.substr(0, length);
}

}  // namespace

std::string shown(const std::string& value) {
  const bool isLong = value.size() > maxShownLength;
  std::string text;
  appendShellWord(isLong ? startOf(value) : value, &text);
  return isLong ? text + "..." : text;
}

bool complain(const std::string& where, const std::string& value, const std::string& reason,
              Complaint* complaint) {
  complaint->text = where + " " + shown(value) + ": " + reason;
  return false;
}

}  // namespace runlet_tool
