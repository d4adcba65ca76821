// What the adapter does as it stands in a job, and what root had better not do.
#pragma once

#include <string_view>

class TiXmlDocument;

namespace runlet_tool {

// Whether an id of that text says that it is 0, which is root: digits 0, maybe with a sign before
// them or white space after them.
bool isPlainZero(std::string_view text);

// "uid" or "gid" if that element of a job comes to 0 in another way, as a name does; else null. The
// job has been read from the document.
const char* hiddenRootIn(const TiXmlDocument& document);

// Whether the shell that the adapter hands the path to takes it for one word, and for no option.
bool isSafeInShell(std::string_view path);

}  // namespace runlet_tool
