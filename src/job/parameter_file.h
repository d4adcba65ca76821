// The loader of the job parameter file.
#pragma once

#include "adapter/context.h"

class TiXmlDocument;

namespace runlet {

// Reads the job parameter file `context->jobFile` into the job fields and lists of `context`.
// Returns true when the whole file was taken over. Call it once per context: it appends to the
// lists.
//
// On failure it returns false, and what was read up to there stays in `context`: nothing is
// rolled back. One line on standard error tells why, except for an empty `jobFile`:
//   "Runlet adapter: Could not load parameter file %s. Error='%s'.Exiting.\n"
//       not a readable regular file, not well-formed XML, or beyond the limits (see loadXml)
//   "Runlet adapter: Invalid XML job syntax.\n"
//       an element that is required is missing, out of order or without its text
//   "Runlet adapter: Strip brace failed.\n"
//       `Arguments` or `Params` without a usable pair of braces
//
// Reversed braces in any braced text raise std::length_error, uncaught: see stripBrace.
bool loadParameterFile(AdapterContext* context);

// The part of it after the reading of the XML. Yields null when the whole document was taken over,
// else the line that tells why not. Nothing is rolled back then: the request ends, and nothing
// looks at the fields.
const char* readJobDocument(const TiXmlDocument& document, AdapterContext* context);

}  // namespace runlet
