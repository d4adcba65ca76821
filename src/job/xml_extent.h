// What an XML text asks of the library that reads it, found out without building it.
#pragma once

#include <cstddef>

namespace runlet {

// How far a text goes in what costs the XML library more than its length.
struct XmlExtent {
  std::size_t depth;       // greatest number of elements open at once
  std::size_t attributes;  // greatest number of attributes of one element
  // For each piece of markup, with the text in front of it: the elements open there, all added up.
  std::size_t steps;
};

// A text beyond this is not given to the library, so that no job file can have the stack or the
// time of a process that runs as root:
//
// It parses and destroys elements by recursion, and takes about 230 bytes of stack a level: less
// than half a megabyte at this depth. It compares each attribute with all in front of it: a
// million in one element would take the better part of an hour. And for each node it goes up
// through all elements around it: these steps take about two seconds at most. (A job of a million
// tasks has 16 million.)
inline constexpr XmlExtent xmlLimits = {2000, 100, 200000000};

// The extent of `text`, which is prepared for the library (see prepareText). Stops as soon as one
// figure is beyond that of `enough`; the others may then be too small. Where the library gives the
// rest of the text up, as at an error, depth and attributes may be larger than what it reaches,
// but never smaller.
//
// Follows the library (reading UTF-8) also where that is generous: a byte that begins a longer
// UTF-8 character hides the bytes after it, whatever they are, and "&#" hides all up to the next
// ";". A job file could otherwise show fewer levels here than it has there.
XmlExtent measureXml(const char* text, const XmlExtent& enough);

// Why `text`, prepared as above, must not be given to the library: it goes beyond xmlLimits. Null
// when it may be given.
const char* refusalOf(const char* text);

}  // namespace runlet
