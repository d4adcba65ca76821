// What the adapter does as it stands in a job, and what root had better not do.
#pragma once

#include <string_view>

class TiXmlDocument;
class TiXmlNode;
class TiXmlText;

namespace runlet_tool {

// Whether there is, from `node` on, which may be null, something that its author may miss.
bool hasContent(const TiXmlNode* node);

// Whether something follows the text in its element that its author may miss.
bool isCutOff(const TiXmlText& text);

// Whether the text of an id comes to 0, which is root, in another way than as a plain 0, as a name
// does.
bool isHiddenRoot(const TiXmlText& text);

// "uid" or "gid" if that element of a job is such a one; else null. The job has been read from the
// document.
const char* hiddenRootIn(const TiXmlDocument& document);

// Whether the shell that the adapter hands the path to takes it for one word, and for no option.
bool isSafeInShell(std::string_view path);

}  // namespace runlet_tool
