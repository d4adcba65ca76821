// Reading a job file into an XML document.
#pragma once

#include <string>

class TiXmlDocument;

namespace runlet {

// Reads the file that `document` is named after into it, as its LoadFile does for UTF-8, but so
// that no file can harm a process that reads it as root. `*document` must be empty.
//
// Returns false with the reason in `*reason` for a file that cannot be opened or read, a directory,
// a file that shrinks meanwhile, one beyond the limits (see xml/limits.h), and anything the library
// refuses, in the library's words.
//
// A device, pipe or socket counts as an empty file. It is never opened, since opening some devices
// has side effects, and never waited for. A lease of another process on the file is waited for, as
// by any open (without /proc, such a file cannot be opened).
bool loadXml(TiXmlDocument* document, std::string* reason);

}  // namespace runlet
