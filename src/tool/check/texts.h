// The texts of the job file's elements, looked at as they are in the file.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string>

#include "tool/check/inspection.h"

namespace runlet_tool {

// What kind of text it is, which decides what is wrong with white space in it.
enum class TextKind { plain, arguments, fields, parameter };

// The text node that the loader reads of `element`, which may be null; null when it has no text.
// Finds what is cut off after it, or hidden before it.
const TiXmlText* textNodeOf(const TiXmlElement* element, Inspection* inspection);

// Finds what of the text does not arrive as it is written: white space, and an & that begins no
// reference; and what is not shown as it arrives: control characters. `number` is that of the task
// that it belongs to; 0 for none.
void inspectWriting(const TiXmlText& text, TextKind kind, std::int32_t number,
                    Inspection* inspection);

// The same, and what is wrong with its braces. Yields what counts of it, as the loader has it;
// empty when there is nothing.
std::string inspectBraces(const TiXmlText& text, TextKind kind, std::int32_t number,
                          Inspection* inspection);

// The elements of cmdData that hold numbers, ids and the flag.
void inspectNumbers(const TiXmlNode& cmdData, Inspection* inspection);

}  // namespace runlet_tool
