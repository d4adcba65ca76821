// The entry point of fuzz targets with large inputs. A small input describes the large one: every
// byte stands for itself, except in two kinds of records:
//
//   0x1f CODE LENGTH PIECE   the piece repeated, cut off at SIZE bytes
//   0x1e CODE LENGTH PIECE   the piece repeated SIZE times
//
// LENGTH + 1 is the length of the piece, which may contain records. The low 4 bits of CODE select
// one of the sizes below, and the high bits, minus 8, are added to it, so that most sizes are near
// a threshold of the code, the libraries or the system.

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "fuzz.h"

namespace {

constexpr std::size_t sizes[] = {8,    15,   32,   55,      100,      255,      512,       1024,
                                 2000, 3999, 4096, 8 << 10, 16 << 10, 32 << 10, 128 << 10, 1 << 20};
static_assert(std::size(sizes) == 16);

// Longer inputs are cut off.
constexpr std::size_t maxLength = (2 << 20) + 16;
constexpr int maxDepth = 3;  // of the recursion

constexpr char toSize = 0x1f;
constexpr char times = 0x1e;
constexpr std::size_t headLength = 3;

std::size_t sizeOf(unsigned char code) {
  return sizes[code & 15U] + (code >> 4U) - 8;
}

std::string enlarged(std::string_view input, int depth);

// Removes a record from the start of the input.
std::string takeRecord(std::string_view* input, int depth) {  // NOLINT(misc-no-recursion)
  const char kind = (*input)[0];
  const std::size_t size = sizeOf(static_cast<unsigned char>((*input)[1]));
  const std::size_t length = static_cast<unsigned char>((*input)[2]) + std::size_t{1};
  const std::string piece = enlarged(input->substr(headLength, length), depth + 1);
  input->remove_prefix(std::min(headLength + length, input->size()));
  if (piece.empty()) return "";
  const std::size_t wanted = kind == toSize ? size : std::min(size, maxLength) * piece.size();
  const std::size_t end = std::min(wanted, maxLength);
  std::string text;
  text.reserve(end + piece.size());
  while (text.size() < end) text += piece;
  text.resize(end);
  return text;
}

std::string enlarged(std::string_view input, int depth) {  // NOLINT(misc-no-recursion)
  std::string text;
  while (!input.empty() && text.size() < maxLength) {
    const bool isRecord = (input[0] == toSize || input[0] == times) && depth < maxDepth;
    if (isRecord && input.size() >= headLength) {
      text += takeRecord(&input, depth);
    } else {
      text += input[0];
      input.remove_prefix(1);
    }
  }
  text.resize(std::min(text.size(), maxLength));
  return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = enlarged({reinterpret_cast<const char*>(data), size}, 0);
  // On the heap and of the exact length, so that reading past the end is detected.
  const std::vector<std::uint8_t> input(text.begin(), text.end());
  runlet_fuzz::tryInput(input.data(), input.size());
  return 0;
}
