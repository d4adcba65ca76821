// Showing any bytes as one line of text.
#pragma once

#include <cstdio>
#include <string>

namespace runlet_test {

// Every unprintable byte, and the backslash, as \xNN.
inline std::string visible(const std::string& text) {
  std::string out;
  for (const char c : text) {
    char code[8];
    const bool plain = c >= ' ' && c <= '~' && c != '\\';
    std::snprintf(code, sizeof code, plain ? "%c" : "\\x%02x", static_cast<unsigned>(c) & 0xffU);
    out += code;
  }
  return out;
}

}  // namespace runlet_test
