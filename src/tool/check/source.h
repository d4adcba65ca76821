// The text of a job file, and finding places in it.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tool/check/report.h"

namespace runlet_tool {

// The offset of a byte in a text as the library parsed it, and in the file.
struct TextMark {
  std::size_t inText;
  std::size_t inFile;
};

// A document that keeps the text it was parsed from, as the library saw it.
class SourceDocument : public TiXmlDocument {
 public:
  using TiXmlDocument::TiXmlDocument;

  const char* Parse(const char* text, TiXmlParsingData* data, TiXmlEncoding encoding) override {
    text_ = text;
    return TiXmlDocument::Parse(text, data, encoding);
  }

  // Leaves none.
  std::string takeText() {
    return std::move(text_);
  }

 private:
  std::string text_;
};

// Maps offsets and nodes to places in the text of a file.
class Source {
 public:
  // All offsets below are offsets in `text`.
  explicit Source(std::string text);

  const std::string& text() const {
    return text_;
  }

  Place placeOf(std::size_t offset) const;

  // The start of a node: the "<" of an element or a CDATA section, the first character of a text
  // that is not white space.
  std::size_t offsetOf(const TiXmlBase& node) const;

  // The offset in the file of byte `index` of a text node. The two differ, since the library
  // condenses white space and replaces references. `marks` are the result of marksIn, or empty.
  std::size_t offsetIn(const TiXmlText& text, std::size_t index,
                       const std::vector<TextMark>& marks = {}) const;

  // Marks in a long text, so that `offsetIn` need not scan it from its beginning.
  std::vector<TextMark> marksIn(const TiXmlText& text) const;

  // The runs of white space that begin in [begin, end), are not a single space, and are condensed
  // to one.
  std::vector<std::string_view> condensedWithin(std::size_t begin, std::size_t end) const;

  // The offset of the first & in [begin, end) that does not begin a reference; npos if there is
  // none.
  std::size_t bareAmpersandWithin(std::size_t begin, std::size_t end) const;

  // Whether the two functions above can find anything.
  bool hasOddWriting() const {
    return !condensed_.empty() || !bareAmpersands_.empty();
  }

  // The end of the text at `offset`: the next markup, or the end of the file.
  std::size_t textEnd(std::size_t offset) const;

  // The node as written in the file (of an element only its tag), up to the end of its line, and
  // cut if it is long.
  std::string excerpt(const TiXmlNode& node) const;

 private:
  struct Mark {
    std::size_t offset;
    Place place;
  };

  void markLines();
  void markWithin(std::size_t end);
  void findCondensed();
  void findBareAmpersands();
  std::size_t endOf(const TiXmlNode& node) const;

  std::string text_;
  // The beginning of every line, and points inside long lines, so that columns need not be counted
  // from the beginning every time.
  std::vector<Mark> marks_;
  std::vector<std::size_t> bareAmpersands_;
  std::vector<std::size_t> condensed_;  // starts of runs of white space inside texts
};

inline Place placeOf(const TiXmlBase& node) {
  return {node.Row(), node.Column()};
}

}  // namespace runlet_tool
