// The cost of an XML text for the library that reads it, computed without building the document.
#pragma once

#include <cstddef>

namespace runlet {

// What costs the XML library more than the length of a text; see xml/limits.h.
struct XmlCost {
  std::size_t depth;        // greatest number of elements open at once
  std::size_t attributes;   // greatest number of attributes of one element
  std::size_t comparisons;  // of attributes, added up
  std::size_t levels;       // for each node, the number of elements around it, added up
};

// The cost of `text`, which ends with a NUL. Stops as soon as one figure exceeds that of `most`;
// the others may then be too small. If the library gives up, as at an error, figures may be larger
// than for the part that it reads, but never smaller.
//
// Follows the library (reading UTF-8) even where that is lenient: a byte that begins a longer UTF-8
// character hides the bytes after it, whatever they are, and "&#" hides everything up to the next
// ";". Otherwise a job file could have fewer levels here than in the library.
XmlCost costOf(const char* text, const XmlCost& most);

// The limits of this process. The depth is what its stack can hold.
XmlCost xmlLimits();

// Why `text`, as above, must not be given to the library: it exceeds xmlLimits(). Null if it may
// be.
const char* refusalOf(const char* text);

}  // namespace runlet
