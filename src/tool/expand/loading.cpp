#include "tool/expand/loading.h"

#include <stdexcept>

#include "job/parameter_file.h"
#include "tool/text/format.h"

namespace runlet_tool {

std::string terminateText(const char* type, const char* what) {
  constexpr char format[] = "terminate called after throwing an instance of '%s'\n  what():  %s";
  return withoutLineEnd(format, type, what);
}

LoadResult loadDocument(runlet::JobDocument* document) {
  std::string reason;
  if (document->load(&reason)) return {};
  // The adapter says nothing then.
  if (*document->Value() == '\0') return {Loading::unreadable, ""};
  return {Loading::unreadable,
          withoutLineEnd(runlet::notLoadedFormat, document->Value(), reason.c_str())};
}

LoadResult readDocument(runlet::JobDocument* document, runlet::AdapterContext* context) {
  try {
    const char* message = readJobDocument(document, context);
    if (message == nullptr) return {};
    return {Loading::refused, withoutLineEnd("%s", message)};
  } catch (const std::length_error& error) {
    return {Loading::ends, terminateText("std::length_error", error.what())};
  }
}

LoadResult loadJob(runlet::AdapterContext* context) {
  runlet::JobDocument document(context->jobFile.c_str());
  document.SetTabSize(0);  // or every byte would be looked at for the line and column it is in
  const LoadResult result = loadDocument(&document);
  return result.loading == Loading::loaded ? readDocument(&document, context) : result;
}

}  // namespace runlet_tool
