#include "tool/submit/array_comment.h"

#include <charconv>
#include <cinttypes>
#include <cstdint>

#include "tool/text/format.h"

namespace runlet_tool {
namespace {

constexpr std::string_view label = "runlet-job:";
constexpr std::size_t hashLength = 16;

// Takes a number above -1 and the ":" behind it off the front of `*text`. False if they are not
// there.
template <typename Number>
bool takeField(std::string_view* text, Number* number) {
  const char* const end = text->data() + text->size();
  const auto [rest, error] = std::from_chars(text->data(), end, *number);
  if (error != std::errc() || rest == end || *rest != ':' || text->front() == '-') return false;
  text->remove_prefix(static_cast<std::size_t>(rest - text->data()) + 1);
  return true;
}

}  // namespace

std::string jobHash(std::string_view jobFile) {
  std::uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
  for (const char c : jobFile) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3;
  }
  return withoutLineEnd("%016" PRIx64, hash);
}

std::string commentText(const ArrayOrigin& origin) {
  const ArrayLayout& layout = origin.layout;
  std::string text(label);
  for (const std::int64_t number : {layout.base, layout.chunk, layout.last}) {
    text.append(std::to_string(number)).append(":");
  }
  return text.append(std::to_string(origin.elementCount)).append(":").append(origin.job);
}

std::optional<ArrayOrigin> readComment(std::string_view text) {
  if (!text.starts_with(label)) return std::nullopt;
  text.remove_prefix(label.size());
  ArrayOrigin origin;
  ArrayLayout& layout = origin.layout;
  const bool isWhole = takeField(&text, &layout.base) && takeField(&text, &layout.chunk) &&
                       takeField(&text, &layout.last) && takeField(&text, &origin.elementCount);
  if (!isWhole || layout.chunk == 0 || text.size() < hashLength) return std::nullopt;
  origin.job = text.substr(0, hashLength);
  return origin;
}

}  // namespace runlet_tool
