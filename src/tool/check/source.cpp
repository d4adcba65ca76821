#include "tool/check/source.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "tool/text/characters.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

constexpr std::string_view cdataStart = "<![CDATA[";

constexpr std::size_t excerptLength = 60;     // characters
constexpr std::size_t longestReference = 64;  // bytes; longer ones are not recognised
constexpr std::size_t marked = 1024;          // bytes from one mark to the next

std::size_t characterLength(std::string_view text) {
  return std::max<std::size_t>(utf8CharacterLength(text), 1);
}

// The number of bytes of that code point in UTF-8.
std::size_t lengthInUtf8(unsigned long code) {
  if (code < 0x80) return 1;
  if (code < 0x800) return 2;
  return code < 0x10000 ? 3 : 4;
}

struct Step {
  std::size_t inFile;  // bytes of the file
  std::size_t inText;  // bytes of the text that they become
};

// The length of the reference at the start of `rest`; 0 if the & does not begin one.
std::size_t referenceLength(std::string_view rest) {
  constexpr std::string_view names[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
  for (const std::string_view name : names) {
    if (rest.starts_with(name)) return name.size();
  }
  if (!rest.starts_with("&#")) return 0;  // otherwise each & would scan the whole file
  const std::size_t end = rest.find(';');
  return end == std::string_view::npos ? 0 : end + 1;
}

Step referenceStep(std::string_view rest) {
  const std::size_t length = referenceLength(rest);
  if (length == 0) return {1, 0};
  if (rest[1] != '#') return {length, 1};
  const std::size_t digits = rest[2] == 'x' ? 3 : 2;
  const std::string number(rest.substr(digits, length - 1 - digits));
  const unsigned long code = std::strtoul(number.c_str(), nullptr, digits == 3 ? 16 : 10);
  return {length, lengthInUtf8(code)};
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
  markLines();
  findCondensed();
  findBareAmpersands();
}

void Source::markLines() {
  const std::size_t start = text_.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
  marks_.reserve(static_cast<std::size_t>(std::count(text_.begin(), text_.end(), '\n')) + 1);
  marks_.push_back({start, {1, 1}});
  for (std::size_t end = text_.find('\n'); end != std::string::npos;
       end = text_.find('\n', end + 1)) {
    markWithin(end);
    marks_.push_back({end + 1, {marks_.back().place.line + 1, 1}});
  }
  markWithin(text_.size());
}

// Adds marks within the line that begins at the last mark and ends at `end`.
void Source::markWithin(std::size_t end) {
  const std::string_view all = text_;
  Mark mark = marks_.back();
  for (std::size_t next = mark.offset + marked; mark.offset < end;) {
    if (end - mark.offset < marked && next > end) return;
    if (mark.offset >= next) {
      marks_.push_back(mark);
      next = mark.offset + marked;
    }
    mark.offset += characterLength(all.substr(mark.offset));
    ++mark.place.column;
  }
}

// White space before a tag is dropped, not condensed. So is white space after a tag, but that is
// not part of a text.
void Source::findCondensed() {
  const char* const begin = text_.data();
  const char* const end = begin + text_.size();
  for (const char* c = begin; c != end; ++c) {
    if (!isWhiteSpace(*c)) continue;
    const char* const run = c;
    while (c != end && isWhiteSpace(*c)) ++c;
    if (c == end) break;
    const bool isSingle = c - run == 1 && *run == ' ';
    if (isSingle || *c == '<') continue;
    condensed_.push_back(static_cast<std::size_t>(run - begin));
  }
}

Place Source::placeOf(std::size_t offset) const {
  const auto precedes = [](std::size_t wanted, const Mark& mark) { return wanted < mark.offset; };
  const auto next = std::upper_bound(marks_.begin() + 1, marks_.end(), offset, precedes);
  Mark mark = *(next - 1);
  const std::string_view all = text_;
  for (; mark.offset < offset; mark.offset += characterLength(all.substr(mark.offset))) {
    ++mark.place.column;
  }
  return mark.place;
}

std::size_t Source::offsetOf(const TiXmlBase& node) const {
  const Place wanted = runlet_tool::placeOf(node);
  const auto precedes = [](const Place& place, const Mark& mark) {
    return std::pair(place.line, place.column) < std::pair(mark.place.line, mark.place.column);
  };
  const auto next = std::upper_bound(marks_.begin() + 1, marks_.end(), wanted, precedes);
  Mark mark = *(next - 1);
  const std::string_view all = text_;
  for (; mark.place.column < wanted.column && mark.offset < all.size(); ++mark.place.column) {
    mark.offset += characterLength(all.substr(mark.offset));
  }
  return std::min(mark.offset, all.size());
}

std::size_t Source::offsetIn(const TiXmlText& text, std::size_t index,
                             const std::vector<TextMark>& marks) const {
  const std::size_t begin = offsetOf(text);
  if (text.CDATA()) return std::min(begin + cdataStart.size() + index, text_.size());
  // Starts at a mark before the byte: one at the byte may be after something that is dropped.
  const auto isBefore = [](const TextMark& mark, std::size_t wanted) {
    return mark.inText < wanted;
  };
  const auto next = std::lower_bound(marks.begin(), marks.end(), index, isBefore);
  TextMark at = next == marks.begin() ? TextMark{0, begin} : *(next - 1);
  const std::string_view all = text_;
  while (at.inText < index && at.inFile < all.size()) {
    const Step step = stepAt(all.substr(at.inFile));
    at = {at.inText + step.inText, at.inFile + step.inFile};
  }
  return std::min(at.inFile, text_.size());
}

std::vector<TextMark> Source::marksIn(const TiXmlText& text) const {
  std::vector<TextMark> marks;
  const std::size_t begin = offsetOf(text);
  TextMark at = {0, begin};
  const std::string_view all = text_;
  for (std::size_t next = begin + marked; at.inText < text.ValueStr().size() && !text.CDATA();) {
    if (at.inFile >= all.size()) break;
    const Step step = stepAt(all.substr(at.inFile));
    at = {at.inText + step.inText, at.inFile + step.inFile};
    if (at.inFile < next) continue;
    marks.push_back(at);
    next = at.inFile + marked;
  }
  return marks;
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

void Source::findBareAmpersands() {
  const std::string_view all = text_;
  for (std::size_t at = all.find('&'); at != std::string_view::npos; at = all.find('&', at + 1)) {
    if (referenceLength(all.substr(at, longestReference)) == 0) bareAmpersands_.push_back(at);
  }
}

std::size_t Source::bareAmpersandWithin(std::size_t begin, std::size_t end) const {
  const auto found = std::lower_bound(bareAmpersands_.begin(), bareAmpersands_.end(), begin);
  return found != bareAmpersands_.end() && *found < end ? *found : std::string::npos;
}

std::size_t Source::textEnd(std::size_t offset) const {
  return std::min(text_.find('<', offset), text_.size());
}

std::size_t Source::endOf(const TiXmlNode& node) const {
  const std::size_t begin = offsetOf(node);
  if (node.ToText() != nullptr && !node.ToText()->CDATA()) return textEnd(begin);
  const std::string_view end = node.ToText() != nullptr      ? "]]>"
                               : node.ToComment() != nullptr ? "-->"
                                                             : ">";
  const std::size_t found = text_.find(end, begin);
  return found == std::string::npos ? text_.size() : found + end.size();
}

std::string Source::excerpt(const TiXmlNode& node) const {
  const std::size_t begin = offsetOf(node);
  std::string_view part = text_;
  part = part.substr(begin, endOf(node) - begin);
  part = part.substr(0, part.find('\n'));
  part = part.substr(0, part.find_last_not_of(whiteSpace) + 1);
  std::size_t end = 0;
  for (std::size_t count = 0; end < part.size(); ++count) {
    if (count == excerptLength) return std::string(part.substr(0, end)) + "...";
    end += characterLength(part.substr(end));
  }
  return std::string(part);
}

}  // namespace runlet_tool
