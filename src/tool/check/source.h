// The text of a job file, and where in it something stands.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "job/job_document.h"
#include "tool/check/finding.h"

namespace runlet_tool {

// A document that keeps the text it was parsed from, as the library saw it.
class SourceDocument : public runlet::JobDocument {
 public:
  using runlet::JobDocument::JobDocument;

  const char* Parse(const char* text, TiXmlParsingData* data, TiXmlEncoding encoding) override {
    text_ = text;
    return JobDocument::Parse(text, data, encoding);
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

  // Where the byte `index` of what the library made of the text node `text` stands: white space is
  // condensed and references are replaced in between.
  std::size_t offsetIn(const TiXmlText& text, std::size_t index) const;

  // The runs of white space that begin in [begin, end) and arrive as a single space without being
  // one.
  std::vector<std::string_view> condensedWithin(std::size_t begin, std::size_t end) const;

  bool hasCondensed() const {
    return !condensed_.empty();
  }

  // Where the text at `offset` ends: at the next markup, or the end of the file.
  std::size_t endOfText(std::size_t offset) const;

 private:
  void findLines();
  void findCondensed();

  std::string text_;
  std::vector<std::size_t> lines_;      // where each begins
  std::vector<std::size_t> condensed_;  // where each run of white space inside a text begins
};

inline Place placeOf(const TiXmlBase& node) {
  return {node.Row(), node.Column()};
}

}  // namespace runlet_tool
