// Loading a job as the adapter does, and telling what the adapter would say.
#pragma once

#include <string>

#include "adapter/context.h"

class TiXmlDocument;

namespace runlet_tool {

enum class Loading {
  loaded,
  refused,     // read, but the adapter does not take it
  ends,        // the adapter ends abnormally
  unreadable,  // not to be read, or not XML
};

struct LoadResult {
  Loading loading = Loading::loaded;
  // The adapter's own text, without its line end; empty when loaded, and where it has none: for an
  // empty path.
  std::string message;
  // Of a job that is loaded: "uid" or "gid" where that id is root's without saying so (see
  // hiddenRootIn), else null.
  const char* hiddenRoot = nullptr;
};

// What is said in place of a message that the adapter does not have.
inline constexpr char noJobFileText[] = "runlet-job: the path of the job file is empty";

// The message for people, or that text where there is none. Of what the C++ library writes the line
// end stays; all else is one line, in which a path or the XML library's reason cannot act on a
// terminal.
std::string shownMessage(const LoadResult& result);

// The two halves of a load: the file to its document, and the document to the job fields and lists
// of `context`, whose `jobFile` the document is named after.
LoadResult loadDocument(TiXmlDocument* document);
LoadResult readDocument(const TiXmlDocument& document, runlet::AdapterContext* context);

// What the C++ library writes for an exception of that type that nothing catches, without its
// line end.
std::string terminateText(const char* type, const char* what);

// Both, for `context->jobFile`.
LoadResult loadJob(runlet::AdapterContext* context);

}  // namespace runlet_tool
