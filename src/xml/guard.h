// What an XML text asks of the library that reads it, found out without building it.
#pragma once

#include <cstddef>

namespace runlet {

// What costs the XML library more than the length of a text; xml/limits.h says how much.
struct XmlCost {
  std::size_t depth;        // greatest number of elements open at once
  std::size_t attributes;   // greatest number of attributes of one element
  std::size_t comparisons;  // of attributes, added up
  std::size_t levels;       // for each node, the number of elements around it, added up
};

// The cost of `text`, which ends with a NUL. Stops as soon as one figure is beyond that
// of `most`; the others may then be too small. Where the library gives up, as at an error, figures
// may be larger than for what it reaches, but never smaller.
//
// Follows the library (reading UTF-8) also where that is generous: a byte that begins a longer
// UTF-8 character hides the bytes after it, whatever they are, and "&#" hides all up to the next
// ";". Otherwise a job file could show fewer levels here than it has there.
XmlCost costOf(const char* text, const XmlCost& most);

// The limits of this process. The depth is the one that its stack can bear.
XmlCost xmlLimits();

// Why `text`, as above, must not be given to the library: it goes beyond xmlLimits(). Null when it
// may be given.
const char* refusalOf(const char* text);

}  // namespace runlet
