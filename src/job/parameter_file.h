// The loader of the job parameter file.
#pragma once

#include "adapter/context.h"

class TiXmlDocument;

namespace runlet {

// Reads the job parameter file `context->jobFile` into the job fields and lists of `context`.
// Returns true if the whole file was accepted. Call it once per context: it appends to the lists.
//
// On failure it returns false, and everything read so far stays in `context`: nothing is rolled
// back. One line on standard error says why, except for an empty `jobFile`:
//   "Runlet adapter: Could not load parameter file %s. Error='%s'.Exiting.\n"
//       not a readable regular file, not well-formed XML, or beyond the limits (see loadXml)
//   "Runlet adapter: Invalid XML job syntax.\n"
//       a required element is missing, out of order or without its text
//   "Runlet adapter: Strip brace failed.\n"
//       `Arguments` or `Params` without a usable pair of braces
//
// Reversed braces in any braced text raise std::length_error, uncaught: see stripBrace.
bool loadParameterFile(AdapterContext* context);

// The second part of loading, after the XML has been read. Returns null if the whole document was
// accepted, else the line that says why not. Nothing is rolled back then: the request ends, and the
// fields are not used.
const char* readJobDocument(const TiXmlDocument& document, AdapterContext* context);

}  // namespace runlet
