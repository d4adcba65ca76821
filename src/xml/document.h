// Reading a job file into an XML document.
#pragma once

#include <string>

class TiXmlDocument;

namespace runlet {

// Reads the file that `document` is named after into it, as its LoadFile does for UTF-8, but so
// that no file can harm a process that reads it as root. `*document` has nothing in it yet.
//
// Returns false with the reason in `*reason` for a file that cannot be opened or read, a directory,
// a file that becomes shorter meanwhile, one beyond the limits (see xml/limits.h), and whatever the
// library refuses, in the library's words.
//
// A device, a pipe or a socket counts as an empty file. It is not opened, since some devices do
// things as soon as they are, and never waited for. A lease that another process has on the file is
// waited for, as by any open (where there is /proc; else such a file cannot be opened).
bool loadXml(TiXmlDocument* document, std::string* reason);

}  // namespace runlet
