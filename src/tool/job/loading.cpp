#include "tool/job/loading.h"

#include <tinyxml.h>

#include <stdexcept>

#include "adapter/messages.h"
#include "job/parameter_file.h"
#include "tool/job/danger.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"
#include "xml/document.h"

namespace runlet_tool {

std::string terminateText(const char* type, const char* what) {
  constexpr char format[] = "terminate called after throwing an instance of '%s'\n  what():  %s";
  return withoutLineEnd(format, type, what);
}

std::string shownMessage(const LoadResult& result) {
  if (result.message.empty()) return noJobFileText;
  return result.loading == Loading::ends ? result.message : visible(result.message);
}

LoadResult loadDocument(TiXmlDocument* document) {
  std::string reason;
  if (runlet::loadXml(document, &reason)) return {};
  // In this case the adapter prints nothing.
  if (*document->Value() == '\0') return {Loading::unreadable, ""};
  return {Loading::unreadable,
          withoutLineEnd(runlet::notLoadedFormat, document->Value(), reason.c_str())};
}

LoadResult readDocument(const TiXmlDocument& document, runlet::AdapterContext* context) {
  try {
    const char* message = readJobDocument(document, context);
    if (message == nullptr) return {Loading::loaded, "", hiddenRootIn(document)};
    return {Loading::refused, withoutLineEnd("%s", message)};
  } catch (const std::length_error& error) {
    return {Loading::ends, terminateText("std::length_error", error.what())};
  }
}

LoadResult loadJob(runlet::AdapterContext* context) {
  TiXmlDocument document(context->jobFile.c_str());
  document.SetTabSize(0);  // no line and column tracking, which would look at every byte
  const LoadResult result = loadDocument(&document);
  return result.loading == Loading::loaded ? readDocument(document, context) : result;
}

}  // namespace runlet_tool
