// Text for a page in HTML that is also XML.
#pragma once

#include <string>
#include <string_view>

namespace runlet_tool {

// `text`, which must be safe to print (see tool/text/characters.h), as text of an element or of a
// quoted attribute. The noncharacters U+FFFE and U+FFFF, which XML forbids, become \ufffe and
// \uffff.
std::string markup(std::string_view text);

// An attribute after a space: ` NAME="VALUE"`, with the value in `markup`; a number has at most two
// decimals.
std::string attribute(const char* name, std::string_view value);
std::string attribute(const char* name, double value);

}  // namespace runlet_tool
