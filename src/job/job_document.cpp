#include "job/job_document.h"

#include <cstdio>

#include "job/arena.h"
#include "job/job_text.h"
#include "job/xml_extent.h"

namespace runlet {
namespace {

// How many bytes of memory a byte of the file may come to in the document, before the heap has to
// help out. In a usual job it is about 9.
constexpr std::size_t documentFactor = 16;

}  // namespace

const char* JobDocument::Parse(const char* text, TiXmlParsingData* data, TiXmlEncoding encoding) {
  padText(const_cast<char*>(text));  // NOLINT(*-const-cast): the buffer that LoadFile has read to
  refusal_ = refusalOf(text);
  return refusal_ == nullptr ? TiXmlDocument::Parse(text, data, encoding) : nullptr;
}

bool JobDocument::load(std::string* reason) {
  std::FILE* stream = openJobText(Value(), &textLength_, reason);
  if (stream == nullptr) return false;
  bool loaded = false;
  {
    const ArenaScope scope(&documentArena, textLength_ * documentFactor);
    loaded = LoadFile(stream, TIXML_ENCODING_UTF8);
  }
  std::fclose(stream);
  if (refusal_ != nullptr) *reason = refusal_;
  if (!loaded && reason->empty()) *reason = ErrorDesc();
  return reason->empty();
}

}  // namespace runlet
