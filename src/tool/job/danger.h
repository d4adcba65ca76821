// Dangerous values in a job that the adapter accepts but root should not.
#pragma once

#include <string_view>

class TiXmlDocument;
class TiXmlNode;
class TiXmlText;

namespace runlet_tool {

// Whether `node`, which may be null, or a later sibling is content that the author may expect to
// count.
bool hasContent(const TiXmlNode* node);

// Whether the element has content after the text that the author may expect to count.
bool isCutOff(const TiXmlText& text);

// Whether the text of an id, such as a name, is read as 0, which is root, but is not a plain 0.
bool isHiddenRoot(const TiXmlText& text);

// "uid" or "gid" if that element is a hidden root; else null. The document must have been loaded as
// a job.
const char* hiddenRootIn(const TiXmlDocument& document);

// Whether the shell to which the adapter passes the path takes it as one word that is not an
// option.
bool isSafeInShell(std::string_view path);

}  // namespace runlet_tool
