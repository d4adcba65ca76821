// The bytes of a job file.
#pragma once

#include <cstdio>
#include <string>

namespace runlet {

// Reads the whole file at `path` into `*text`, followed by a few NULs that let the XML library
// run over the end unharmed. Returns false, with the reason in `*reason`, when that is a
// directory or cannot be read; what `*text` holds then does not matter. A device or a pipe
// is empty. Never waits, whatever `path` names.
bool readJobText(const char* path, std::string* text, std::string* reason);

// A stream that reads `text`, which must outlive it. The caller closes it. Yields null when
// memory is short.
std::FILE* openText(const std::string& text);

}  // namespace runlet
