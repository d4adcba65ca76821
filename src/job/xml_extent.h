// What an XML text asks of the library that reads it, found out without building it.
#pragma once

#include <cstddef>

namespace runlet {

// How far a text goes in what costs the XML library more than its length.
struct XmlExtent {
  std::size_t depth;       // greatest number of elements open at once
  std::size_t attributes;  // greatest number of attributes of one element
};

// A text beyond this is not given to the library.
//
// It parses and destroys elements by recursion and takes about 230 bytes of stack a level: with
// this depth it gets by with one megabyte, and no job file can overflow the stack of a process
// that runs as root. And it compares each attribute with all in front of it: a million of them
// would take the better part of an hour.
inline constexpr XmlExtent xmlLimits = {4000, 1000};

// The extent of `text`, which is prepared for the library (see prepareText). Stops as soon as one
// figure is beyond that of `enough`; the other may then be too small. In text with an error the
// library stops there; the figures may then be larger than what it would reach, but never
// smaller.
//
// Follows the library (reading UTF-8) also where that is generous: a byte that begins a longer
// UTF-8 character hides the bytes after it, whatever they are, and "&#" hides all up to the next
// ";". A job file could otherwise show fewer levels here than it has there.
XmlExtent measureXml(const char* text, const XmlExtent& enough);

}  // namespace runlet
