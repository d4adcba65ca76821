// Loading a job as the adapter does, with the adapter's messages.
#pragma once

#include <string>

#include "adapter/context.h"

class TiXmlDocument;

namespace runlet_tool {

enum class Loading {
  loaded,
  refused,     // read, but not accepted by the adapter
  ends,        // the adapter ends abnormally
  unreadable,  // cannot be read, or is not XML
};

struct LoadResult {
  Loading loading = Loading::loaded;
  // The adapter's own text, without its newline; empty if loaded, and for an empty path, for which
  // the adapter has none.
  std::string message;
  // For a loaded job, the result of hiddenRootIn: "uid" or "gid" if that id is a hidden root, else
  // null.
  const char* hiddenRoot = nullptr;
};

// Printed for an empty path, for which the adapter has no message.
inline constexpr char noJobFileText[] = "runlet-job: the path of the job file is empty";

// The message for people, or noJobFileText if there is none. Newlines in text of the C++ library
// stay; any other message is one line, with control characters escaped.
std::string shownMessage(const LoadResult& result);

// The two halves of loading: from the file to a document, and from the document to the job fields
// and lists of `context`. The document is named after the `jobFile` of `context`.
LoadResult loadDocument(TiXmlDocument* document);
LoadResult readDocument(const TiXmlDocument& document, runlet::AdapterContext* context);

// What the C++ library writes for an uncaught exception of that type, without its newline.
std::string terminateText(const char* type, const char* what);

// Loads the file `context->jobFile`: both halves.
LoadResult loadJob(runlet::AdapterContext* context);

}  // namespace runlet_tool
