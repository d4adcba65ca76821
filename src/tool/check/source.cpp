#include "tool/check/source.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "tool/text/utf8.h"

namespace runlet_tool {
namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
constexpr std::string_view cdataStart = "<![CDATA[";

// As the XML library has it.
bool isWhiteSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

std::size_t characterLength(std::string_view text) {
  return std::max<std::size_t>(utf8Length(text), 1);
}

// How many bytes the character with that number has in UTF-8.
std::size_t lengthInUtf8(unsigned long code) {
  if (code < 0x80) return 1;
  if (code < 0x800) return 2;
  return code < 0x10000 ? 3 : 4;
}

struct Step {
  std::size_t inFile;  // bytes of the file
  std::size_t inText;  // bytes of what becomes of them
};

Step referenceStep(std::string_view rest) {
  const std::size_t end = rest.find(';');
  if (end == std::string_view::npos) return {1, 1};
  if (rest.size() < 3 || rest[1] != '#') {
    const bool isNamed = rest.substr(1, end - 1).find_first_of("& <\n") == std::string_view::npos;
    return {isNamed && end < 6 ? end + 1 : 1, 1};
  }
  const bool isHex = rest[2] == 'x';
  const std::string digits(rest.substr(isHex ? 3 : 2, end - (isHex ? 3 : 2)));
  return {end + 1, lengthInUtf8(std::strtoul(digits.c_str(), nullptr, isHex ? 16 : 10))};
}

Step stepAt(std::string_view rest) {
  if (rest.front() == '&') return referenceStep(rest);
  if (isWhiteSpace(rest.front())) {
    const auto* const end = std::find_if_not(rest.begin(), rest.end(), isWhiteSpace);
    return {static_cast<std::size_t>(end - rest.begin()), 1};
  }
  const std::size_t length = characterLength(rest);
  return {length, length};
}

}  // namespace

Source::Source(std::string text) : text_(std::move(text)) {
  findLines();
  findCondensed();
}

void Source::findLines() {
  lines_.push_back(0);
  for (std::size_t end = text_.find('\n'); end != std::string::npos;
       end = text_.find('\n', end + 1)) {
    lines_.push_back(end + 1);
  }
}

// Behind a tag and in front of one, white space is dropped, not condensed.
void Source::findCondensed() {
  const char* const begin = text_.data();
  const char* const end = begin + text_.size();
  for (const char* c = begin; c != end; ++c) {
    if (!isWhiteSpace(*c)) continue;
    const char* const run = c;
    while (c != end && isWhiteSpace(*c)) ++c;
    if (c == end) break;
    const bool isSingle = c - run == 1 && *run == ' ';
    if (isSingle || *c == '<' || run == begin || run[-1] == '>') continue;
    condensed_.push_back(static_cast<std::size_t>(run - begin));
  }
}

Place Source::placeOf(std::size_t offset) const {
  const auto next = std::upper_bound(lines_.begin(), lines_.end(), offset);
  const auto line = next - lines_.begin();
  std::size_t at = *(next - 1);
  if (at == 0 && text_.starts_with(byteOrderMark)) at = byteOrderMark.size();
  int column = 1;
  const std::string_view all = text_;
  for (; at < offset; at += characterLength(all.substr(at))) ++column;
  return {static_cast<int>(line), column};
}

std::size_t Source::offsetOf(const TiXmlBase& node) const {
  const auto line = static_cast<std::size_t>(std::max(node.Row(), 1)) - 1;
  const std::string_view all = text_;
  std::size_t at = line < lines_.size() ? lines_[line] : all.size();
  if (at == 0 && text_.starts_with(byteOrderMark)) at = byteOrderMark.size();
  for (int column = 1; column < node.Column() && at < all.size(); ++column) {
    at += characterLength(all.substr(at));
  }
  return std::min(at, all.size());
}

std::size_t Source::offsetIn(const TiXmlText& text, std::size_t index) const {
  std::size_t at = offsetOf(text);
  if (text.CDATA()) return std::min(at + cdataStart.size() + index, text_.size());
  const std::string_view all = text_;
  for (std::size_t done = 0; done < index && at < all.size();) {
    const Step step = stepAt(all.substr(at));
    at += step.inFile;
    done += step.inText;
  }
  return std::min(at, text_.size());
}

std::vector<std::string_view> Source::condensedWithin(std::size_t begin, std::size_t end) const {
  std::vector<std::string_view> runs;
  for (auto run = std::lower_bound(condensed_.begin(), condensed_.end(), begin);
       run != condensed_.end() && *run < end; ++run) {
    const auto first = text_.begin() + static_cast<std::ptrdiff_t>(*run);
    runs.emplace_back(first, std::find_if_not(first, text_.end(), isWhiteSpace));
  }
  return runs;
}

std::size_t Source::endOfText(std::size_t offset) const {
  return std::min(text_.find('<', offset), text_.size());
}

}  // namespace runlet_tool
