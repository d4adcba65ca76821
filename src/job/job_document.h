// The XML document of a job file.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>

namespace runlet {

// A document that looks at a text before it parses it, so that what the library cannot take never
// reaches it. It is looked at where it is parsed: no byte can change in between, and a large file
// is in memory once.
class JobDocument : public TiXmlDocument {
 public:
  // Takes the path of the file.
  using TiXmlDocument::TiXmlDocument;

  // Reads the file. False with the reason in `*reason`, which has to be empty before, when it is
  // not a readable regular file, too large, not well-formed XML, or beyond what the XML library is
  // given (see xmlLimits).
  bool load(std::string* reason);

  // How many bytes of text were read.
  std::size_t textLength() const {
    return textLength_;
  }

  const char* Parse(const char* text, TiXmlParsingData* data, TiXmlEncoding encoding) override;

 private:
  const char* refusal_ = nullptr;  // why it did not parse the text; null when it did
  std::size_t textLength_ = 0;
};

}  // namespace runlet
