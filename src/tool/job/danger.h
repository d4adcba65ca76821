// Dangerous values in a job that the adapter accepts but root should not.
#pragma once

#include <string_view>

class TiXmlDocument;
class TiXmlNode;
class TiXmlText;

namespace runlet_tool {

// Whether `node` (may be null) or a later sibling has content, which the author may expect to
// count.
bool hasContent(const TiXmlNode* node);

// Whether the element has content after the text that the author may expect to count.
bool isCutOff(const TiXmlText& text);

// Whether the text of an id is read as 0, which is root, without being a plain 0, such as a name.
bool isHiddenRoot(const TiXmlText& text);

// "uid" or "gid" if that element of a job is a hidden root; else null. A job has been loaded from
// the document.
const char* hiddenRootIn(const TiXmlDocument& document);

// Whether the shell to which the adapter passes the path takes it as one word that is not an
// option.
bool isSafeInShell(std::string_view path);

}  // namespace runlet_tool
