// Checking the texts of elements as they are written in the file.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string>

#include "tool/check/inspection.h"

namespace runlet_tool {

// The kind of a text, which decides what white space in it means.
enum class TextKind { plain, arguments, fields, parameter };

// The text node that the loader reads from `element`, which may be null; null if it has no text.
// Adds a finding if text is cut off after it, or if other content comes before the text.
const TiXmlText* textNodeOf(const TiXmlElement* element, Inspection* inspection);

// Adds findings about white space and "&" that are not read as written, and about control
// characters, which are not shown as they are read. `number` is the number of the task that the
// text belongs to; 0 = none.
void inspectWriting(const TiXmlText& text, TextKind kind, std::int32_t number,
                    Inspection* inspection);

// The same, and findings about its braces. Returns the part that counts, as the loader reads it;
// empty if there is none.
std::string inspectBraces(const TiXmlText& text, TextKind kind, std::int32_t number,
                          Inspection* inspection);

// Checks the elements of cmdData that hold numbers, ids and the flag.
void inspectNumbers(const TiXmlNode& cmdData, Inspection* inspection);

}  // namespace runlet_tool
