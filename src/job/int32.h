// 32-bit arithmetic as in the farm server.
#pragma once

#include <cstdint>

namespace runlet {

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The number at the start of `text`, in base 10, as strtol reads it (leading white space and a sign
// are allowed, text after the digits is ignored, no digits give 0, and it saturates beyond 64
// bits), cut to its low 32 bits.
std::int32_t decimalInt32(const char* text);

// Two's complement arithmetic that wraps around.
constexpr std::int32_t wrappingAdd(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

constexpr std::int32_t wrappingMultiply(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

}  // namespace runlet
