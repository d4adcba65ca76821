// Numbers on the command line.
#pragma once

#include <algorithm>
#include <string>

namespace runlet_tool {

// `text` without zeros in front of its number, for a conversion that would take it for octal or
// hexadecimal then: names of logs have such zeros, and the adapter reads decimal. What is no
// decimal number is not made one.
inline std::string inDecimal(const std::string& text) {
  const std::size_t begin = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
  const std::size_t zeros = std::min(text.find_first_not_of('0', begin), text.size()) - begin;
  const bool isZero = begin + zeros == text.size() && zeros > 0;
  return text.substr(0, begin) + text.substr(begin + zeros - (isZero ? 1 : 0));
}

}  // namespace runlet_tool
