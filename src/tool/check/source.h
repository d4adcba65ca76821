// The text of a job file, and where in it something is.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tool/check/report.h"

namespace runlet_tool {

// Where a byte of what the library made of a text stands in the file.
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

  const std::string& text() const {
    return text_;
  }

 private:
  std::string text_;
};

// Finds places in the text of a file.
class Source {
 public:
  // Takes over the text; the offsets below are in it.
  explicit Source(std::string text);

  const std::string& text() const {
    return text_;
  }

  Place placeOf(std::size_t offset) const;

  // Where a node begins: an element at its "<", a text at its first character that is not white
  // space, a CDATA section at its "<".
  std::size_t offsetOf(const TiXmlBase& node) const;

  // Where the byte `index` of what the library made of the text node `text` is: white space is
  // condensed and references are replaced in between.
  // `marks` are those of the text, or none.
  std::size_t offsetIn(const TiXmlText& text, std::size_t index,
                       const std::vector<TextMark>& marks = {}) const;

  // Points in a long text from which `offsetIn` need not go through it from its beginning.
  std::vector<TextMark> marksIn(const TiXmlText& text) const;

  // The runs of white space that begin in [begin, end) and arrive as a single space without being
  // one.
  std::vector<std::string_view> condensedWithin(std::size_t begin, std::size_t end) const;

  // Where in [begin, end) the first & is that does not begin a reference; npos if there is none.
  std::size_t bareAmpersandWithin(std::size_t begin, std::size_t end) const;

  // Whether there is anything that the two above may find.
  bool hasOddWriting() const {
    return !condensed_.empty() || !bareAmpersands_.empty();
  }

  // Where the text at `offset` ends: at the next markup, or the end of the file.
  std::size_t textEnd(std::size_t offset) const;

  // The node as it is in the file, up to the end of its line and not too much of it; of an
  // element its tag.
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
  // The beginning of every line, and points inside of long ones, which are not to be counted
  // through from their beginning every time.
  std::vector<Mark> marks_;
  std::vector<std::size_t> bareAmpersands_;
  std::vector<std::size_t> condensed_;  // where each run of white space inside a text begins
};

inline Place placeOf(const TiXmlBase& node) {
  return {node.Row(), node.Column()};
}

}  // namespace runlet_tool
